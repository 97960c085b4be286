// tree_hashes.h - lets an image tree that was changed by hand be taken for whole.
#pragma once

#include <cstdint>
#include <cstring>
#include <openssl/sha.h>
#include <string>

namespace kestro::test {

inline std::uint64_t NumberAt(const std::string& bytes, std::size_t offset)
{
    std::uint64_t number;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

// A resource as the header and the blob table describe it: eight bytes of size and flags, then its
// offset.
struct WimResource {
    std::uint64_t size, offset;
    unsigned flags;
    bool inside;
};

inline WimResource ResourceAt(const std::string& wim, std::size_t at)
{
    const std::uint64_t first = NumberAt(wim, at);
    WimResource resource = {first & 0x00FF'FFFF'FFFF'FFFF, NumberAt(wim, at + 8),
                            static_cast<unsigned>(first >> 56), false};
    resource.inside = resource.offset < wim.size() && resource.size <= wim.size() - resource.offset;
    return resource;
}

// The image file with the SHA-1 that fits for each of its trees that is not compressed, after a change to
// it.
inline std::string WithTreeHashes(std::string wim)
{
    constexpr std::size_t header = 208, blobTable = 48, entrySize = 50, hash = 30;
    constexpr unsigned metadata = 2, compressed = 4;
    if (wim.size() < header)
        return wim;
    const WimResource table = ResourceAt(wim, blobTable);
    if (!table.inside || (table.flags & compressed))
        return wim;
    for (std::size_t at = table.offset; at + entrySize <= table.offset + table.size;
         at += entrySize) {
        const WimResource blob = ResourceAt(wim, at);
        if (!(blob.flags & metadata) || (blob.flags & compressed) || !blob.inside)
            continue;
        unsigned char digest[SHA_DIGEST_LENGTH];
        SHA1(reinterpret_cast<const unsigned char*>(wim.data()) + blob.offset, blob.size, digest);
        std::memcpy(wim.data() + at + hash, digest, sizeof digest);
    }
    return wim;
}

} // namespace kestro::test
