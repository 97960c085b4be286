// image_append.h - saves changes at the end of an image file, where only what is new has to be written.
//
// The file under the image's name holds the old state or the new one at every moment: the new content
// comes behind everything that the old header leads to, and is on disk before the new header is written.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace kestro::servicing {

constexpr std::size_t kImageHeaderSize = 208;

// What an append does to an image file: enough to see after a crash whether it was done, and to undo it.
struct ImageAppend {
    long long oldSize = 0;
    long long oldModified = 0; // nanoseconds
    std::string oldHeader, newHeader;
};

// Makes a file that libwim can save changes into as if it were the image file, at the cost of the
// image's metadata alone: it is as long and has none of the files' content. False when the image file is
// of a kind that cannot be appended to.
bool MakeShadow(const std::string& image, const std::string& shadow);

// What the save into the shadow comes to; nothing when it did not leave everything in place.
std::optional<ImageAppend> PlanAppend(const std::string& image, const std::string& shadow);

// Leaves the image file as it was on failure.
void Append(const ImageAppend& append, const std::string& image, const std::string& shadow);

// Whether the append was done. One that was interrupted is undone.
bool WasAppended(const ImageAppend& append, const std::string& image);

} // namespace kestro::servicing
