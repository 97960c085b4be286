// file_system.cpp - the file operations that crash-safe changes are made of.
#include "file_system.h"

#include "servicing_error.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/sendfile.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>

namespace kestro::servicing {
namespace fs = std::filesystem;

FileIdentity IdentityOf(const struct stat& status)
{
    return {status.st_dev, status.st_ino, status.st_size, Nanoseconds(status.st_mtim)};
}

FileIdentity IdentityOf(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? IdentityOf(status) : FileIdentity{};
}

std::string AbsolutePath(const std::string& path)
{
    std::error_code error;
    std::string absolute = fs::weakly_canonical(path, error).string();
    const bool answers = !error;
    if (!answers)
        absolute = fs::absolute(path, error).lexically_normal().string();
    while (absolute.size() > 1 && absolute.back() == '/')
        absolute.pop_back();
    if (answers || absolute.size() <= 1)
        return absolute;
    // A mount that nobody serves any more does not answer; where it is can be told all the same.
    const fs::path plain = absolute;
    return (fs::path(AbsolutePath(plain.parent_path())) / plain.filename()).string();
}

bool IsDirectory(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string FindDirectoryIn(const std::string& parent, const std::string& name)
{
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(parent, error))
        if (strcasecmp(entry.path().filename().c_str(), name.c_str()) == 0 &&
            IsDirectory(entry.path()))
            return entry.path();
    return {};
}

std::string ReadWholeFile(const std::string& path)
{
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file)
        throw SystemError("cannot open " + path);
    std::string content;
    char block[65536];
    for (;;) {
        const ssize_t count = read(file.Get(), block, sizeof block);
        if (count < 0)
            throw SystemError("cannot read " + path);
        if (count == 0)
            return content;
        content.append(block, static_cast<std::size_t>(count));
    }
}

void WriteWholeFile(const std::string& path, const std::string& content, Sync sync)
{
    const std::string unfinished = path + ".unfinished";
    {
        const FileDescriptor file(
            open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        if (!file)
            throw SystemError("cannot create " + unfinished);
        for (std::size_t done = 0; done < content.size();) {
            const ssize_t count = write(file.Get(), content.data() + done, content.size() - done);
            if (count < 0)
                throw SystemError("cannot write " + unfinished);
            done += static_cast<std::size_t>(count);
        }
        if (sync != Sync::Nothing && fsync(file.Get()) != 0)
            throw SystemError("cannot save " + unfinished);
    }
    if (rename(unfinished.c_str(), path.c_str()) != 0)
        throw SystemError("cannot replace " + path);
    if (sync == Sync::Everything)
        SyncDirectoryOf(path);
}

void SyncDirectoryOf(const std::string& path)
{
    const std::string directory = fs::path(path).parent_path().string();
    const FileDescriptor handle(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!handle || fsync(handle.Get()) != 0)
        throw SystemError("cannot save the directory " + directory);
}

// For the text of an error.
static std::string PathOf(int file)
{
    std::error_code error;
    return fs::read_symlink("/proc/self/fd/" + std::to_string(file), error).string();
}

void SyncData(int file)
{
    if (fdatasync(file) != 0)
        throw SystemError("cannot save " + PathOf(file));
}

std::string ReadRange(int file, unsigned long long offset, std::size_t size)
{
    struct stat status = {};
    if (fstat(file, &status) != 0)
        throw SystemError("cannot look at " + PathOf(file));
    // Said before room is made for what may not be there.
    const auto end = static_cast<unsigned long long>(status.st_size);
    if (offset > end || size > end - offset)
        throw ServicingError(code::bad_format,
                             PathOf(file) + " ends before something that it refers to");
    std::string content(size, '\0');
    for (std::size_t done = 0; done < size;) {
        const ssize_t count =
            pread(file, content.data() + done, size - done, static_cast<off_t>(offset + done));
        if (count < 0)
            throw SystemError("cannot read " + PathOf(file));
        if (count == 0)
            throw ServicingError(code::read_fault,
                                 PathOf(file) + " became shorter while it was read");
        done += static_cast<std::size_t>(count);
    }
    return content;
}

void WriteRange(int file, unsigned long long offset, std::string_view content)
{
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t count = pwrite(file, content.data() + done, content.size() - done,
                                     static_cast<off_t>(offset + done));
        if (count < 0)
            throw SystemError("cannot write " + PathOf(file));
        done += static_cast<std::size_t>(count);
    }
}

void CopyRange(int source, int target, unsigned long long from, unsigned long long to)
{
    constexpr unsigned long long most = 1 << 20;
    for (; from < to; from += std::min(to - from, most))
        WriteRange(target, from, ReadRange(source, from, std::min(to - from, most)));
}

void SyncFileSystem(const std::string& path)
{
    const FileDescriptor handle(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!handle || syncfs(handle.Get()) != 0)
        throw SystemError("cannot save " + path);
}

void CopyFile(const std::string& from, const std::string& to)
{
    const FileDescriptor source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!source || fstat(source.Get(), &status) != 0)
        throw SystemError("cannot open " + from);
    const FileDescriptor target(
        open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, status.st_mode & 07777));
    if (!target)
        throw SystemError("cannot create " + to);
    // The owner is kept where this process may give files away.
    [[maybe_unused]] const int owned = fchown(target.Get(), status.st_uid, status.st_gid);
    if (fchmod(target.Get(), status.st_mode & 07777) != 0)
        throw SystemError("cannot set the mode of " + to);

    // The disk begins to write while the rest is copied: whoever syncs the copy waits for less.
    constexpr off_t chunk = 16 << 20;
    for (off_t left = status.st_size; left > 0;) {
        const auto size = static_cast<std::size_t>(std::min(left, chunk));
        ssize_t count = copy_file_range(source.Get(), nullptr, target.Get(), nullptr, size, 0);
        if (count < 0 &&
            (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP))
            count = sendfile(target.Get(), source.Get(), nullptr, size);
        if (count < 0)
            throw SystemError("cannot copy " + from + " to " + to);
        if (count == 0)
            throw ServicingError(code::read_fault, from + " became shorter while it was copied");
        sync_file_range(target.Get(), status.st_size - left, count, SYNC_FILE_RANGE_WRITE);
        left -= count;
    }
}

bool IsEmptyDirectory(const std::string& path)
{
    std::error_code error;
    const bool empty = fs::is_empty(path, error);
    if (error)
        throw ServicingError(CodeOfErrno(error.value()),
                             "cannot read the directory " + path + ": " + error.message());
    return empty;
}

} // namespace kestro::servicing
