// wim_blobs.cpp - the table of what an image file holds.
#include "wim_blobs.h"

#include "file_system.h"

#include <algorithm>

namespace kestro::servicing {

std::vector<WimBlob> ParseBlobTable(const std::string& bytes)
{
    constexpr std::size_t references = 26, hash = 30;
    std::vector<WimBlob> blobs(bytes.size() / WimBlob::kSize);
    const char* entry = bytes.data();
    for (WimBlob& blob : blobs) {
        blob.resource = WimResource::Parse(entry);
        blob.references = static_cast<unsigned>(LittleEndian(entry + references, 4));
        blob.hasHash = std::any_of(entry + hash, entry + WimBlob::kSize, [](char c) { return c; });
        entry += WimBlob::kSize;
    }
    return blobs;
}

std::vector<WimBlob> ReadBlobTable(int image, const WimResource& table)
{
    return ParseBlobTable(ReadRange(image, table.offset, table.storedSize));
}

const WimBlob* FindTree(const std::vector<WimBlob>& blobs, unsigned index)
{
    // The order of the images is that of the entries; those without content or use do not count.
    for (const WimBlob& blob : blobs)
        if (blob.resource.Has(WimResource::kMetadata) && blob.references != 0 && blob.hasHash &&
            blob.resource.originalSize != 0 && --index == 0)
            return &blob;
    return nullptr;
}

} // namespace kestro::servicing
