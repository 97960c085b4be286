// wim_header.cpp - the fixed part of an image file, which says where everything else in it is.
#include "wim_header.h"

#include "file_system.h"

#include <fcntl.h>

#include <algorithm>

namespace kestro::servicing {

std::uint64_t LittleEndian(const char* bytes, std::size_t size)
{
    std::uint64_t number = 0;
    for (std::size_t i = size; i-- > 0;)
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    return number;
}

WimResource WimResource::Parse(const char* bytes)
{
    WimResource resource;
    resource.storedSize = LittleEndian(bytes, 7);
    resource.flags = static_cast<unsigned char>(bytes[7]);
    resource.offset = LittleEndian(bytes + 8, 8);
    resource.originalSize = LittleEndian(bytes + 16, 8);
    return resource;
}

WimHeader WimHeader::Read(int file)
{
    struct stat status = {};
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        return {};
    const auto read = [&](off_t offset) {
        std::string bytes(kSize, '\0');
        const ssize_t count = pread(file, bytes.data(), kSize, offset);
        return WimHeader(count == static_cast<ssize_t>(kSize) ? bytes : "");
    };
    WimHeader header = read(0);
    if (!header.IsEmpty() && header.IsPipable())
        header = read(status.st_size - static_cast<off_t>(kSize));
    return header;
}

std::uint64_t WimHeader::End() const
{
    return std::max(Xml().End(), IntegrityTable().End());
}

bool WimHeader::operator==(const WimHeader& other) const
{
    if (IsEmpty() || other.IsEmpty())
        return IsEmpty() && other.IsEmpty();
    return bytes_.compare(0, kFlagsAt, other.bytes_, 0, kFlagsAt) == 0 &&
           bytes_.compare(kFlagsAt + 4, kSize, other.bytes_, kFlagsAt + 4, kSize) == 0;
}

bool WimHeader::IsBetween(const WimHeader& before, const WimHeader& next) const
{
    if (IsEmpty() || before.IsEmpty() || next.IsEmpty())
        return false;
    for (std::size_t i = 0; i < kSize; ++i)
        if (bytes_[i] != before.bytes_[i] && bytes_[i] != next.bytes_[i])
            return false;
    return true;
}

ImageIdentity ImageIdentityOf(int file)
{
    struct stat status = {};
    if (fstat(file, &status) != 0)
        return {};
    return {status.st_dev, status.st_ino, WimHeader::Read(file)};
}

ImageIdentity ImageIdentityOf(const std::string& path)
{
    // A pipe in its place must not hold the call.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    return file ? ImageIdentityOf(file.Get()) : ImageIdentity{};
}

} // namespace kestro::servicing
