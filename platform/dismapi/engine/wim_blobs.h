// wim_blobs.h - the table of what an image file holds.
#pragma once

#include "wim_header.h"

#include <vector>

namespace kestro::servicing {

// Content of files, or the tree of an image.
struct WimBlob {
    static constexpr std::size_t kSize = 50; // in the table

    WimResource resource;
    unsigned references = 0;
    bool hasHash = false;
};

std::vector<WimBlob> ParseBlobTable(const std::string& bytes);
// Of a table that is not compressed. Throws ServicingError.
std::vector<WimBlob> ReadBlobTable(int image, const WimResource& table);
// The tree of an image, counted from 1; null when there is none.
const WimBlob* FindTree(const std::vector<WimBlob>& blobs, unsigned index);

} // namespace kestro::servicing
