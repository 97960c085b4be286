// wim_header.h - the fixed part of an image file, which says where everything else in it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kestro::servicing {

// Numbers in image files are little endian, of one to eight bytes.
std::uint64_t LittleEndian(const char* bytes, std::size_t size);

// Where something lies in an image file, as the file says: stored in `storedSize` bytes, which hold
// `originalSize` bytes of content.
struct WimResource {
    static constexpr std::size_t kSize = 24;
    static constexpr unsigned kMetadata = 2, kCompressed = 4, kSolid = 16;

    static WimResource Parse(const char* bytes);
    bool Has(unsigned flag) const { return (flags & flag) != 0; }
    bool IsAbsent() const { return storedSize == 0 && offset == 0; }
    bool IsInside(std::uint64_t fileSize) const
    {
        return offset <= fileSize && storedSize <= fileSize - offset;
    }
    std::uint64_t End() const { return offset + storedSize; }

    std::uint64_t storedSize = 0, offset = 0, originalSize = 0;
    unsigned flags = 0;
};

// The 208 bytes as they are, and what they say.
class WimHeader {
  public:
    static constexpr std::size_t kSize = 208;

    WimHeader() = default;
    explicit WimHeader(std::string bytes) : bytes_(std::move(bytes)) {}
    // The header that counts: of a file that was written to be piped, the one at its end. Without bytes
    // when the file is no image file.
    static WimHeader Read(int file);

    const std::string& Bytes() const { return bytes_; }
    bool IsEmpty() const { return bytes_.size() != kSize; }
    bool IsPipable() const { return bytes_.starts_with("WLPWM"); }
    bool IsOfImageFile() const { return bytes_.starts_with("MSWIM") || IsPipable(); }
    bool IsMarkedReadOnly() const { return (Flags() & 4) != 0; }
    bool MayBeSolid() const { return Number(12, 4) != 0x10D00; }
    unsigned ImageCount() const { return static_cast<unsigned>(Number(44, 4)); }
    unsigned Parts() const { return static_cast<unsigned>(Number(42, 2)); }
    std::uint32_t ChunkSize() const { return static_cast<std::uint32_t>(Number(20, 4)); }
    std::uint32_t Flags() const { return static_cast<std::uint32_t>(Number(kFlagsAt, 4)); }
    WimResource BlobTable() const { return WimResource::Parse(bytes_.data() + 48); }
    WimResource Xml() const { return WimResource::Parse(bytes_.data() + 72); }
    WimResource IntegrityTable() const { return WimResource::Parse(bytes_.data() + 124); }
    // Where the file's content ends and more can be appended, whatever the file's size is.
    std::uint64_t End() const;

    // Flags come and go while a file is written to; everything else changes with each save.
    bool operator==(const WimHeader& other) const;
    // Whether each byte is one or the other's: what a write of `next` over `before` leaves half done.
    bool IsBetween(const WimHeader& before, const WimHeader& next) const;

  private:
    static constexpr std::size_t kFlagsAt = 16;
    std::uint64_t Number(std::size_t at, std::size_t size) const
    {
        return LittleEndian(bytes_.data() + at, size);
    }

    std::string bytes_;
};

// Which image file a path names, and in which state: every save, by whatever tool, changes the header.
// Size and time tell less: a save that was killed has changed both and nothing else.
struct ImageIdentity {
    unsigned long long device = 0, inode = 0;
    WimHeader header;
    bool operator==(const ImageIdentity&) const = default;
};

ImageIdentity ImageIdentityOf(int file);
// All zero and without a header when there is no such file.
ImageIdentity ImageIdentityOf(const std::string& path);

} // namespace kestro::servicing
