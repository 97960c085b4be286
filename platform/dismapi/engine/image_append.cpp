// image_append.cpp - saves changes at the end of an image file.
#include "image_append.h"

#include "file_system.h"
#include "servicing_error.h"
#include "wim_file.h"

#include <fcntl.h>

#include <algorithm>
#include <set>
#include <tuple>
#include <vector>

namespace kestro::servicing {
namespace {

FileDescriptor Open(const std::string& path, int flags)
{
    FileDescriptor file(open(path.c_str(), flags | O_CLOEXEC, 0600));
    if (!file)
        throw SystemError("cannot open " + path);
    return file;
}

// Shorter than asked for only at the end of the file.
std::string ReadAt(const FileDescriptor& file, off_t offset, std::size_t size)
{
    std::string content(size, '\0');
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = pread(file.Get(), content.data() + done, size - done,
                                    offset + static_cast<off_t>(done));
        if (count < 0)
            throw SystemError("cannot read an image file");
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    content.resize(done);
    return content;
}

void WriteAt(const FileDescriptor& file, off_t offset, const std::string& content)
{
    for (std::size_t done = 0; done < content.size();) {
        const ssize_t count = pwrite(file.Get(), content.data() + done, content.size() - done,
                                     offset + static_cast<off_t>(done));
        if (count < 0)
            throw SystemError("cannot write an image file");
        done += static_cast<std::size_t>(count);
    }
}

void CopyRange(const FileDescriptor& from, const FileDescriptor& to, off_t offset, off_t end)
{
    constexpr off_t blockSize = 1 << 20;
    while (offset < end) {
        const auto size = static_cast<std::size_t>(std::min(blockSize, end - offset));
        const std::string block = ReadAt(from, offset, size);
        if (block.size() != size)
            throw ServicingError(code::read_fault, "an image file became shorter");
        WriteAt(to, offset, block);
        offset += static_cast<off_t>(size);
    }
}

struct Range {
    unsigned long long offset = 0, size = 0;
    unsigned long long End() const { return offset + size; }
};

// The parts of an image file that its header leads to.
struct Header {
    explicit Header(const std::string& bytes)
        : isPlain(bytes.size() == kImageHeaderSize && bytes.compare(0, 8, "MSWIM\0\0\0", 8) == 0)
    {
        if (!isPlain)
            return;
        table = At(bytes, 48);
        xml = At(bytes, 72);
        integrity = At(bytes, 124);
        isPlain = (bytes[48 + 7] & kCompressed) == 0;
    }
    unsigned long long End() const { return std::max(table.End(), xml.End()); }

    bool isPlain;
    Range table, xml, integrity;

  private:
    static constexpr char kCompressed = 4;
    static Range At(const std::string& bytes, std::size_t position)
    {
        const auto number = [&](std::size_t at, std::size_t size) {
            unsigned long long value = 0;
            while (size-- > 0)
                value = value << 8 | static_cast<unsigned char>(bytes[at + size]);
            return value;
        };
        return {number(position + 8, 8), number(position, 7)};
    }
};

std::string HeaderBytes(const FileDescriptor& file)
{
    return ReadAt(file, 0, kImageHeaderSize);
}

struct stat StatusOf(const FileDescriptor& file)
{
    struct stat status = {};
    if (fstat(file.Get(), &status) != 0)
        throw SystemError("cannot look at an image file");
    return status;
}

std::vector<StoredResource> ResourcesOf(const std::string& path)
{
    return WimFile(path, WimFile::Access::Read, false, {}).Resources();
}

bool IsWithin(const Range& range, unsigned long long size)
{
    return range.offset <= size && range.size <= size - range.offset;
}

// Everything that the new header leads to lies where it was or behind the old end.
bool LeavesOldContentInPlace(const std::string& image, const std::string& shadow,
                             const Header& header, unsigned long long oldSize)
{
    if (!header.isPlain || header.table.offset < oldSize || header.xml.offset < oldSize ||
        header.integrity.size != 0)
        return false;
    const auto key = [](const StoredResource& resource) {
        return std::tuple(resource.offset, resource.size, resource.hash);
    };
    std::set<std::tuple<unsigned long long, unsigned long long, std::string>> old;
    for (const StoredResource& resource : ResourcesOf(image))
        old.insert(key(resource));
    const auto resources = ResourcesOf(shadow);
    return std::all_of(resources.begin(), resources.end(), [&](const auto& resource) {
        return resource.offset >= oldSize || old.count(key(resource)) != 0;
    });
}

void Undo(const ImageAppend& append, const FileDescriptor& image, const std::string& path)
{
    const timespec times[2] = {{0, UTIME_OMIT},
                               {append.oldModified / 1'000'000'000,
                                static_cast<long>(append.oldModified % 1'000'000'000)}};
    if (ftruncate(image.Get(), append.oldSize) != 0 || futimens(image.Get(), times) != 0 ||
        fsync(image.Get()) != 0)
        throw SystemError("cannot take back what was added to " + path);
}

} // namespace

bool MakeShadow(const std::string& image, const std::string& shadow)
{
    if (access(image.c_str(), W_OK) != 0)
        return false;
    const FileDescriptor source = Open(image, O_RDONLY);
    const auto size = static_cast<unsigned long long>(StatusOf(source).st_size);
    const Header header(HeaderBytes(source));
    // Integrity data cover the content too; bytes behind the end are not ours to overwrite.
    if (!header.isPlain || header.integrity.size != 0 || header.End() != size ||
        !IsWithin(header.table, size) || !IsWithin(header.xml, size))
        return false;

    std::vector<Range> parts = {{0, kImageHeaderSize}, header.table, header.xml};
    for (const StoredResource& resource : ResourcesOf(image)) {
        if (!resource.isMetadata)
            continue;
        if (resource.isPacked || !IsWithin({resource.offset, resource.size}, size))
            return false;
        parts.push_back({resource.offset, resource.size});
    }
    const FileDescriptor target = Open(shadow, O_RDWR | O_CREAT | O_TRUNC);
    if (ftruncate(target.Get(), static_cast<off_t>(size)) != 0)
        throw SystemError("cannot create " + shadow);
    for (const Range& part : parts)
        CopyRange(source, target, static_cast<off_t>(part.offset), static_cast<off_t>(part.End()));
    return true;
}

std::optional<ImageAppend> PlanAppend(const std::string& image, const std::string& shadow)
{
    const FileDescriptor source = Open(image, O_RDONLY);
    const struct stat status = StatusOf(source);
    ImageAppend append;
    append.oldSize = status.st_size;
    append.oldModified = Nanoseconds(status.st_mtim);
    append.oldHeader = HeaderBytes(source);
    append.newHeader = HeaderBytes(Open(shadow, O_RDONLY));
    if (!LeavesOldContentInPlace(image, shadow, Header(append.newHeader),
                                 static_cast<unsigned long long>(append.oldSize)))
        return std::nullopt;
    return append;
}

void Append(const ImageAppend& append, const std::string& image, const std::string& shadow)
{
    const FileDescriptor target = Open(image, O_RDWR);
    const FileDescriptor source = Open(shadow, O_RDONLY);
    try {
        CopyRange(source, target, append.oldSize, StatusOf(source).st_size);
        if (fdatasync(target.Get()) != 0)
            throw SystemError("cannot save " + image);
        WriteAt(target, 0, append.newHeader);
        if (fsync(target.Get()) != 0)
            throw SystemError("cannot save " + image);
    } catch (...) {
        WriteAt(target, 0, append.oldHeader);
        Undo(append, target, image);
        throw;
    }
}

bool WasAppended(const ImageAppend& append, const std::string& image)
{
    if (IdentityOf(image) == FileIdentity{})
        return false;
    const std::string header = HeaderBytes(Open(image, O_RDONLY));
    if (header == append.newHeader)
        return true;
    // Otherwise somebody else has changed the file since.
    if (header == append.oldHeader) {
        const FileDescriptor file = Open(image, O_RDWR);
        if (StatusOf(file).st_size >= append.oldSize)
            Undo(append, file, image);
    }
    return false;
}

} // namespace kestro::servicing
