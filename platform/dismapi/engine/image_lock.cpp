// image_lock.cpp - keeps two processes from changing the same image's drivers at the same time.
#include "image_lock.h"

#include "servicing_error.h"

#include <fcntl.h>
#include <sys/file.h>

namespace kestro::servicing {

ImageLock::ImageLock(const std::filesystem::path& folder)
    : descriptor_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (!descriptor_)
        throw SystemError("cannot open " + folder.string());
    // File systems without locks are private mounts: there is no second process to fear.
    while (flock(descriptor_.Get(), LOCK_EX) != 0 && errno == EINTR) {
    }
}

} // namespace kestro::servicing
