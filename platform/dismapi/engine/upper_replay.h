// upper_replay.h - does to a saved image what a plan says.
#pragma once

#include "replay_plan.h"
#include "wim_file.h"

namespace kestro::servicing {

enum class ReplayTarget {
    Image, // libwim's read-write mount: takes no modes and owners
    Mount, // a fresh overlay over the saved image: writing to a name parts it from its other names
};

struct ReplayPlaces {
    std::string upper;
    std::string target; // shows the saved image
    ReplayTarget kind = ReplayTarget::Image;
    // What libwim put before the absolute targets of the image's links, where the upper directory has
    // such links: the directory that the image was mounted in.
    std::string linkRoot;
};

// Makes the target show what the upper directory makes of the saved image. A file is written in the
// place of the image's own, which so keeps what the image knows of it. After a failure the target is to
// be thrown away. What others remove from the upper directory meanwhile is left as it is in the target.
void Replay(const ReplayPlan& plan, const ReplayPlaces& places, const Progress& progress);

} // namespace kestro::servicing
