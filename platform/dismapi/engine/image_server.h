// image_server.h - the processes that show images through FUSE, each a program of its own.
#pragma once

#include <string>

namespace kestro::servicing {

struct ImageServer {
    std::string program;
    std::string image;
    unsigned index = 1;
    std::string shownAs;    // the directory in which users see the image
    std::string mountPoint; // where it is mounted
    std::string lock;       // a file that the process holds locked as long as it lives
    std::string name;       // in lists of mounts
    std::string staging; // where new content waits for a commit; empty to show the image read-only
    // A lock that the process keeps until it serves, so that a starter that is killed leaves it locked.
    int mountLock = -1;
};

enum class ServerAccess {
    Own,    // for this user's processes
    Others, // for every user's
};

// Starts a process that shows the image, and returns when it can be read. Throws ServicingError
// with the process's reason, and then nothing is mounted.
void StartServing(const ImageServer& server, ServerAccess access);

// Whether a process holds the lock: an image is served, in whatever mount namespace.
bool IsServed(const std::string& lock);
// Whether that process sees other mounts than this one.
bool IsServedElsewhere(const std::string& lock);
// The process ends when nothing uses its mount any more. False when that takes too long.
bool AwaitEndOfServing(const std::string& lock);
// For a process whose mount nobody can reach any more.
void EndServing(const std::string& lock);

} // namespace kestro::servicing
