// image_append.h - writing what a save appends into the image file, so that whatever happens meanwhile,
// the file is the old one or the new one.
#pragma once

#include "mount_record.h"

namespace kestro::servicing {

// Copies what was appended to the stand-in into the image file and puts the new header into force: first
// everything that the header will refer to is on disk, then the header is written at once. The record is
// the one that was prepared, and the image file is locked.
void AppendFromStandIn(const MountRecord& next, const std::string& standIn);

// After an append that did not come to its end: a file that still has its old header becomes what it was.
// One that has the new header is whole, and any other is somebody else's: neither is touched.
void TakeBackAppend(const MountRecord& next);

} // namespace kestro::servicing
