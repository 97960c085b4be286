// serving.h - what the parts of the serving program share.
#pragma once

#include <sys/stat.h>

#include <string>

namespace kestro::imagefs {

// How the image is shown.
struct View {
    bool sharesLock = false;
    bool writable = false; // shown as it is, to be changed by the embedded servicing API alone
    std::string shownAs, mountPoint, name;
    mode_t umask = 022;
    struct stat root = {}; // the directory that the mount covers
};
extern View g_view;

// Open when the starter shares its lock on the mount, which is held until everything is mounted: nobody is to
// find a mount half made after the starter was killed.
inline constexpr int kMountLock = 3;

// The last byte on the output when everything is mounted.
inline constexpr char kServed = '\0';

// Gives up everything that reading an open image file and answering the kernel does not need. False when
// the system does not let go of something.
bool GiveUpRights();

} // namespace kestro::imagefs
