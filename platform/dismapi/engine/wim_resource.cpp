// wim_resource.cpp - reads what an image file holds without libwim, and believes nothing it says of itself.
#include "wim_resource.h"

#include "file_system.h"
#include "servicing_error.h"

#include <wimlib.h>

#include <algorithm>
#include <bit>
#include <memory>
#include <vector>

namespace kestro::servicing {
namespace {

constexpr std::uint64_t kMostChunk = 64 << 20; // the largest that Windows writes

std::uint64_t PartsOf(std::uint64_t size, std::uint64_t part)
{
    return size / part + (size % part != 0 ? 1 : 0);
}

// In the table of parts an offset takes as many bytes as the largest one needs.
std::uint64_t OffsetSize(std::uint64_t originalSize)
{
    return originalSize > UINT32_MAX ? 8 : 4;
}

std::uint64_t LeastOfWholePart(const Chunks& chunks)
{
    switch (chunks.compression) {
    case WIMLIB_COMPRESSION_TYPE_XPRESS:
        return std::min<std::uint64_t>(chunks.size, 256); // the lengths of its codes
    case WIMLIB_COMPRESSION_TYPE_LZX:
        return std::max<std::uint64_t>(chunks.size / (257 * 8), 1); // a bit for the longest match
    default:
        return 1;
    }
}

[[noreturn]] void Refuse(const std::string& reason)
{
    throw ServicingError(code::bad_format, "the image file is damaged: " + reason);
}

class Decompressor {
  public:
    explicit Decompressor(const Chunks& chunks)
    {
        wimlib_decompressor* made = nullptr;
        const int error = wimlib_create_decompressor(
            static_cast<wimlib_compression_type>(chunks.compression), chunks.size, &made);
        if (error == WIMLIB_ERR_NOMEM)
            throw ServicingError(code::out_of_memory, "no memory to read an image file");
        if (error != 0)
            Refuse("its compression does not exist");
        decompressor_.reset(made);
    }
    void Run(const std::string& from, char* to, std::size_t size) const
    {
        if (from.size() == size)
            std::copy(from.begin(), from.end(), to);
        else if (wimlib_decompress(from.data(), from.size(), to, size, decompressor_.get()) != 0)
            Refuse("something in it cannot be decompressed");
    }

  private:
    struct Free {
        void operator()(wimlib_decompressor* d) const { wimlib_free_decompressor(d); }
    };
    std::unique_ptr<wimlib_decompressor, Free> decompressor_;
};

// Where the parts begin, and where the last one ends.
std::vector<std::uint64_t> ReadOffsets(int image, const WimResource& resource, const Chunks& chunks)
{
    const std::uint64_t parts = PartsOf(resource.originalSize, chunks.size);
    const std::uint64_t width = OffsetSize(resource.originalSize);
    const std::uint64_t tableSize = (parts - 1) * width;
    const std::uint64_t head = chunks.pipable ? 4 : 0; // a part's size, before each part
    const std::string table =
        ReadRange(image, chunks.pipable ? resource.End() - tableSize : resource.offset, tableSize);
    const std::uint64_t first = resource.offset + (chunks.pipable ? 0 : tableSize);
    const std::uint64_t end = resource.storedSize - tableSize;
    std::vector<std::uint64_t> offsets = {first};
    for (std::uint64_t part = 1; part <= parts; ++part) {
        const std::uint64_t offset =
            part == parts ? end
                          : LittleEndian(table.data() + (part - 1) * width, width) + part * head;
        if (offset > end || first + offset < offsets.back() + head)
            Refuse("the parts of something in it overlap");
        offsets.push_back(first + offset);
    }
    return offsets;
}

} // namespace

Chunks ChunksOf(const WimHeader& header)
{
    constexpr std::uint32_t compressed = 2, xpress = 0x20000, lzx = 0x40000, lzms = 0x80000,
                            xpress2 = 0x200000;
    Chunks chunks;
    chunks.pipable = header.IsPipable();
    if ((header.Flags() & compressed) == 0)
        return chunks;
    chunks.compression = (header.Flags() & lzx) != 0 ? WIMLIB_COMPRESSION_TYPE_LZX
                         : (header.Flags() & (xpress | xpress2)) != 0
                             ? WIMLIB_COMPRESSION_TYPE_XPRESS
                         : (header.Flags() & lzms) != 0 ? WIMLIB_COMPRESSION_TYPE_LZMS
                                                        : WIMLIB_COMPRESSION_TYPE_NONE;
    chunks.size = header.ChunkSize();
    if (!std::has_single_bit(chunks.size) || chunks.size > kMostChunk)
        Refuse("it says that it is compressed in parts of " + std::to_string(chunks.size) +
               " bytes");
    return chunks;
}

std::uint64_t LeastStored(std::uint64_t originalSize, const Chunks& chunks)
{
    const std::uint64_t parts = PartsOf(originalSize, chunks.size);
    if (parts == 0)
        return 0;
    const std::uint64_t ofEach =
        OffsetSize(originalSize) + LeastOfWholePart(chunks) + (chunks.pipable ? 4 : 0);
    // The first part has no offset, and the last one may be small.
    return (parts - 1) * ofEach + 1;
}

void RequireCredibleSize(const WimResource& resource, const Chunks& chunks)
{
    constexpr std::uint64_t anyway = 16 << 20, bestRatio = 256;
    if (resource.Has(WimResource::kSolid))
        Refuse("a table or tree in it claims to be solid");
    const bool credible =
        resource.Has(WimResource::kCompressed)
            ? chunks.size != 0 &&
                  LeastStored(resource.originalSize, chunks) <= resource.storedSize &&
                  (resource.originalSize <= anyway ||
                   (resource.originalSize - anyway) / bestRatio <= resource.storedSize)
            : resource.originalSize <= resource.storedSize;
    if (!credible)
        Refuse(std::to_string(resource.storedSize) + " bytes in it claim to hold " +
               std::to_string(resource.originalSize));
}

std::string ReadResource(int image, const WimResource& resource, const Chunks& chunks)
{
    RequireCredibleSize(resource, chunks);
    if (!resource.Has(WimResource::kCompressed) || resource.originalSize == 0)
        return ReadRange(image, resource.offset, resource.originalSize);

    const Decompressor decompressor(chunks);
    const std::vector<std::uint64_t> offsets = ReadOffsets(image, resource, chunks);
    const std::uint64_t head = chunks.pipable ? 4 : 0;
    std::string content;
    for (std::size_t part = 0; part + 1 < offsets.size(); ++part) {
        const std::uint64_t start = offsets[part] + head, stored = offsets[part + 1] - start,
                            size = std::min(chunks.size, resource.originalSize - content.size());
        if (stored == 0 || stored > size)
            Refuse("a part of something in it is larger than its content");
        // Room is made as the content comes.
        content.resize(content.size() + size);
        decompressor.Run(ReadRange(image, start, stored), content.data() + content.size() - size,
                         size);
    }
    return content;
}

} // namespace kestro::servicing
