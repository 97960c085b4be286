// mount_changes.h - what has changed in a mount since it was last saved, and how that comes into an image
// file.
#pragma once

#include "image_save.h"
#include "mount_record.h"
#include "platform_log.h"
#include "upper_replay.h"

namespace kestro::servicing {

struct MountChanges {
    std::string state;   // what the record keeps of the mount once they are saved
    std::string summary; // for people
    bool empty = true;
    ApplyChanges apply;
};

// Through libwim's read-write mount where the system lets it, so that changed files keep what the image
// knows of them; else what an extracted mount has is added anew. Throws when something of it cannot be
// in an image.
MountChanges FindMountChanges(const MountEntry& entry, const std::string& serverProgram,
                              const PlatformLog& log, const Progress& progress);

// What was in the lazy mount's upper directory when it was saved; nothing before the first save.
UpperState SavedUpperState(const MountEntry& entry);

// What is to be done to the saved image so that it becomes what the lazy mount was with that upper
// directory.
ReplayPlan PlanFromRecord(const MountRecord& record, const UpperState& former,
                          const UpperState& now, const std::string& upper);

} // namespace kestro::servicing
