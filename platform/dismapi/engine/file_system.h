// file_system.h - the file operations that crash-safe changes are made of.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <string_view>
#include <utility>

namespace kestro::servicing {

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd = -1) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~FileDescriptor()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    explicit operator bool() const { return fd_ >= 0; }
    int Get() const { return fd_; }
    // Somebody else closes it.
    int Release() { return std::exchange(fd_, -1); }

  private:
    int fd_;
};

// Which file a path names, and in which state: two equal identities are the same unchanged file.
struct FileIdentity {
    unsigned long long device = 0, inode = 0;
    long long size = 0, modified = 0; // nanoseconds
    bool operator==(const FileIdentity&) const = default;
};

// Of times that an image made up this is no more than a mark to know them by: it starts again after 584
// years.
inline long long Nanoseconds(const timespec& time)
{
    return static_cast<long long>(static_cast<unsigned long long>(time.tv_sec) * 1'000'000'000 +
                                  static_cast<unsigned long long>(time.tv_nsec));
}

FileIdentity IdentityOf(const struct stat& status);
// All zero when there is no such file.
FileIdentity IdentityOf(const std::string& path);

// The path without links and relative parts; the last part need not exist.
std::string AbsolutePath(const std::string& path);

bool IsDirectory(const std::string& path);
// A directory below another, by a name that is compared without case as Windows does; empty when there
// is none.
std::string FindDirectoryIn(const std::string& parent, const std::string& name);

// Everything below throws ServicingError.

std::string ReadWholeFile(const std::string& path);
// The file is there as a whole or as it was; also after a crash, once it and its directory are synced.
enum class Sync {
    Everything,
    Content, // the directory comes later
    Nothing, // a crash may leave an empty file
};
void WriteWholeFile(const std::string& path, const std::string& content,
                    Sync sync = Sync::Everything);
void SyncDirectoryOf(const std::string& path);
// Everything written to the open file is on disk.
void SyncData(int file);
// Parts of open files, from an offset on; of a copy, up to another one.
std::string ReadRange(int file, unsigned long long offset, std::size_t size);
void WriteRange(int file, unsigned long long offset, std::string_view content);
void CopyRange(int source, int target, unsigned long long from, unsigned long long to);
// Everything written to the file system that holds the path is on disk.
void SyncFileSystem(const std::string& path);
// A copy with the same mode and owner; shares blocks where the file system can.
void CopyFile(const std::string& from, const std::string& to);
// The directory itself stays. Does not follow links and does not leave the file system.
void EmptyDirectory(const std::string& path);
bool IsEmptyDirectory(const std::string& path);

} // namespace kestro::servicing
