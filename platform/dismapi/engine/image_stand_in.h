// image_stand_in.h - a small file that libwim takes for a large image file and appends to.
//
// An append needs of an image file the header, the tree of the image that changes and the tables; content
// that is in the file already is known by its hash and never read. A sparse file with these parts in their
// places is made in no time, and what libwim adds to it is what has to be added to the image file.
#pragma once

#include "wim_header.h"

#include <optional>
#include <string>

namespace kestro::servicing {

// Why an image file cannot be appended to through a stand-in; empty when it can.
std::string WhyNotAppendable(int image, const WimHeader& header, bool integrity);

// What nothing in the file refers to any more is worth a rebuild.
bool IsWorthCompacting(int image, const WimHeader& header);

// Throws ServicingError.
void MakeStandIn(int image, const WimHeader& header, unsigned index, const std::string& path);

// Hashes the parts of the file anew that have changed there, after it was appended to: of its integrity table,
// where there is one, only what covers the end of the file as it was before depends on a stand-in.
void RenewIntegrity(int standIn, const WimHeader& before, const WimHeader& now, std::uint64_t from,
                    std::uint64_t to);

// What the image file's header becomes with what was appended to the stand-in; nothing when libwim has
// not appended to it but written it anew.
std::optional<WimHeader> AppendedHeader(const std::string& standIn, const WimHeader& before,
                                        unsigned long long inode);

} // namespace kestro::servicing
