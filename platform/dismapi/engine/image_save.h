// image_save.h - saving into the image file of a mount: the file is the old one or the new one, whatever
// happens meanwhile, and is appended to wherever that is possible.
#pragma once

#include "mount_record.h"
#include "platform_log.h"
#include "wim_file.h"

#include <functional>

namespace kestro::servicing {

// Brings what has changed in a mount into the image file of that name, which libwim may write to as it
// likes: it is not the mount's own.
using ApplyChanges = std::function<void(const std::string& imageFile, const WriteOptions& options)>;

struct SaveRequest {
    ApplyChanges apply;
    bool integrity = false;
    // The caller is about to unmount: the time to leave out what nothing refers to any more.
    bool mayCompact = false;
};

// The caller has locked the image file (LockImage). `next` and `state` are what will hold of the mount once
// the image file is saved; throws ServicingError and then leaves the old state.
void SaveImage(MountEntry& entry, MountRecord next, const std::string* state,
               const SaveRequest& request, const PlatformLog& log);

} // namespace kestro::servicing
