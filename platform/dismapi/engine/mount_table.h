// mount_table.h - what is mounted where, as this process sees it.
#pragma once

#include <string>
#include <vector>

namespace kestro::servicing {

struct MountPoint {
    std::string directory, type, source;
};

// In the order in which they were mounted: of several on one directory the last is the one to be seen.
// Throws ServicingError when the system does not tell.
std::vector<MountPoint> ReadMountTable();

// What lies over the directory itself; nothing when it is no mount point.
std::vector<MountPoint> MountsOn(const std::string& directory);

// Takes down everything that is mounted on a directory below the folder, the newest first. False when there
// was nothing. Throws partly_unmounted when something of it is in use.
bool UnmountBelow(const std::string& folder);
// All mounts that are called so.
bool UnmountNamed(const std::string& source);

enum class Unmounting {
    WhenUnused,
    Anyway, // what others hold open stays theirs until they let go
};
// False when it is in use.
bool Unmount(const std::string& directory, Unmounting how);

} // namespace kestro::servicing
