// mount_checks.h - what has to hold of a mount's directory before anything is done with it.
#pragma once

#include "lazy_mount.h"
#include "mount_record.h"

namespace kestro::servicing {

// What stays the same for as long as the directory is the same one and nothing is mounted on it.
FileIdentity DirectoryIdentity(const std::string& directory);

// They throw ServicingError.
void RequireEmptyDirectory(const std::string& directory);
void RequireSameDirectory(const MountRecord& record);
// Not where this process cannot see it.
void RequireHere(MountPresence presence, const std::string& directory);

} // namespace kestro::servicing
