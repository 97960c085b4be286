// empty_directory.cpp - removes everything below a directory.
#include "file_system.h"
#include "servicing_error.h"
#include "worker.h"

#include <fcntl.h>
#include <sys/sysmacros.h>

#include <atomic>
#include <exception>
#include <filesystem>
#include <mutex>
#include <vector>

namespace kestro::servicing {
namespace fs = std::filesystem;

namespace {

struct Entries {
    std::vector<std::string> files;
    std::vector<std::vector<std::string>> directories; // by depth
};

// Another file system, or another place of this one, that is mounted on the directory.
bool IsMountPoint(const fs::path& directory, dev_t device)
{
    struct statx status = {};
    if (statx(AT_FDCWD, directory.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &status) != 0)
        throw SystemError("cannot look at " + directory.string());
    return makedev(status.stx_dev_major, status.stx_dev_minor) != device ||
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

void Collect(const fs::path& directory, dev_t device, std::size_t depth, Entries& found)
{
    // Directories that lost their write permission can still be emptied by their owner.
    struct stat status = {};
    if (lstat(directory.c_str(), &status) == 0 && (status.st_mode & 0700) != 0700)
        chmod(directory.c_str(), status.st_mode | 0700);

    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        if (entry.is_symlink() || !entry.is_directory()) {
            found.files.push_back(entry.path());
            continue;
        }
        if (found.directories.size() <= depth)
            found.directories.resize(depth + 1);
        found.directories[depth].push_back(entry.path());
        if (!IsMountPoint(entry.path(), device))
            Collect(entry.path(), device, depth + 1, found);
    }
}

// Removing waits for the disk more than it computes, most of all where freed blocks are discarded at
// once: several threads wait together.
void RemoveEach(const std::vector<std::string>& paths, int (*remove)(const char*))
{
    constexpr std::size_t workers = 8, worthWorkers = 256;
    std::atomic<std::size_t> next = 0;
    std::mutex mutex;
    std::exception_ptr failure;
    const auto work = [&](std::size_t) {
        for (std::size_t i = next++; i < paths.size(); i = next++) {
            if (remove(paths[i].c_str()) == 0)
                continue;
            const ServicingError error = SystemError("cannot remove " + paths[i]);
            const std::lock_guard lock(mutex);
            failure = std::make_exception_ptr(error);
            next = paths.size();
        }
    };
    {
        const auto others = StartWorkers(paths.size() < worthWorkers ? 0 : workers - 1, work);
        work(others.size());
    }
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace

void EmptyDirectory(const std::string& path)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) != 0)
        throw SystemError("cannot look at " + path);
    try {
        Entries found;
        Collect(path, status.st_dev, 0, found);
        RemoveEach(found.files, unlink);
        for (auto level = found.directories.rbegin(); level != found.directories.rend(); ++level)
            RemoveEach(*level, rmdir);
    } catch (const fs::filesystem_error& error) {
        throw ServicingError(CodeOfErrno(error.code().value()), error.what());
    }
}

} // namespace kestro::servicing
