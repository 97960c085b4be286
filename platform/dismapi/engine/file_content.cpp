// file_content.cpp - copies a file's content and what else Linux knows of it.
#include "file_content.h"

#include "servicing_error.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace kestro::servicing {
namespace {

// Copies from position on, up to end or to where the file ends now.
void CopyRange(int from, int to, off_t position, off_t end, const std::string& name,
               const std::function<void(long long)>& written)
{
    std::vector<char> block(
        std::min<std::size_t>(1 << 20, static_cast<std::size_t>(end - position)));
    while (position < end) {
        const auto wanted = std::min(block.size(), static_cast<std::size_t>(end - position));
        const ssize_t count = pread(from, block.data(), wanted, position);
        if (count < 0)
            throw SystemError("cannot read " + name);
        if (count == 0)
            return;
        for (ssize_t done = 0; done < count;) {
            const ssize_t part = pwrite(to, block.data() + done,
                                        static_cast<std::size_t>(count - done), position + done);
            if (part < 0)
                throw SystemError("cannot write " + name);
            done += part;
        }
        position += count;
        written(count);
    }
}

} // namespace

void CopyContent(int from, int to, const std::string& name,
                 const std::function<void(long long)>& written)
{
    struct stat status = {};
    if (fstat(from, &status) != 0)
        throw SystemError("cannot look at " + name);
    for (off_t position = 0;;) {
        const off_t data = lseek(from, position, SEEK_DATA);
        if (data < 0 && errno == ENXIO)
            break;
        const off_t hole = data < 0 ? data : lseek(from, data, SEEK_HOLE);
        if (hole < 0)
            throw SystemError("cannot read " + name);
        CopyRange(from, to, data, hole, name, written);
        position = hole;
    }
    // The file may end with a hole.
    struct stat copy = {};
    if (fstat(to, &copy) != 0 ||
        (copy.st_size < status.st_size && ftruncate(to, status.st_size) != 0))
        throw SystemError("cannot write " + name);
}

void CopyOwnership(const std::string& from, const struct stat& status, const std::string& to)
{
    if (lchown(to.c_str(), status.st_uid, status.st_gid) != 0 ||
        (!S_ISLNK(status.st_mode) && chmod(to.c_str(), status.st_mode & 07777) != 0))
        throw SystemError("cannot set the owner and mode of " + to);
    if (S_ISLNK(status.st_mode))
        return;
    std::vector<char> names(65536), value(65536); // as long as the kernel lets them be
    const ssize_t length = llistxattr(from.c_str(), names.data(), names.size());
    for (const char* name = names.data(); name < names.data() + length;
         name += std::strlen(name) + 1) {
        if (std::strncmp(name, "user.", 5) != 0)
            continue;
        const ssize_t size = lgetxattr(from.c_str(), name, value.data(), value.size());
        if (size < 0 ||
            lsetxattr(to.c_str(), name, value.data(), static_cast<std::size_t>(size), 0) != 0)
            throw SystemError(std::string("cannot set the attribute ") + name + " of " + to);
    }
}

void CopyTimes(const struct stat& status, const std::string& to)
{
    const timespec times[2] = {status.st_atim, status.st_mtim};
    if (utimensat(AT_FDCWD, to.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
        throw SystemError("cannot set the times of " + to);
}

} // namespace kestro::servicing
