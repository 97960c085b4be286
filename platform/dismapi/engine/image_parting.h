// image_parting.h - lets a name of a file with several names have content of its own and keep all else that the
// image knows of the file. libwim can do one or the other; what it reads in a stand-in, however, it takes for
// what is in the image.
#pragma once

#include "image_stand_in.h"
#include "replay_plan.h"

#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

// Files of the saved image whose names would have to be parted from others, so that they can be written in their
// places: in each list the names that belong together, as the saved image has them. `shown` shows it.
std::vector<std::vector<std::string>> FindNamesToPart(const ReplayPlan& plan,
                                                      const std::string& shown);

// What differs between a stand-in and the image file.
struct Parting {
    std::uint64_t at = 0;
    std::string original;
    WimHeader before; // the image file's
};

// Before libwim opens the stand-in: takes the names of each list out of their link groups and links them to each
// other. Nothing when there is nothing of that to be done.
std::optional<Parting> PartNames(const std::string& standIn, unsigned index,
                                 const std::vector<std::vector<std::string>>& names);

// After libwim has appended to it: what is behind the image file's end is what belongs there.
void EndParting(const std::string& standIn, const Parting& parting);

} // namespace kestro::servicing
