// wim_resource.h - reads what an image file holds without libwim, and believes nothing it says of itself.
#pragma once

#include "wim_header.h"

namespace kestro::servicing {

// How the parts of an image file's resources are compressed, each on its own.
struct Chunks {
    unsigned compression = 0; // libwim's number
    std::uint64_t size = 0;   // of a whole part's content
    bool pipable = false;
};

// What the header says; throws ServicingError when no file is like that.
Chunks ChunksOf(const WimHeader& header);

// The bytes that a resource with that content takes at the least: its table of parts and, for each part,
// what the best compression leaves of it.
std::uint64_t LeastStored(std::uint64_t originalSize, const Chunks& chunks);

// A resource that is read into memory as a whole is refused before room is made for a size that no real
// one has.
void RequireCredibleSize(const WimResource& resource, const Chunks& chunks);

// The content. Throws ServicingError.
std::string ReadResource(int image, const WimResource& resource, const Chunks& chunks);

} // namespace kestro::servicing
