// image_choice.h - the images of a file that --index means.
#pragma once

#include "kestro.hpp"

#include <string>
#include <vector>

namespace kestro::host {

// A number, a name without regard to case, or "all"; the first image when nothing is chosen. Throws
// UsageError for what the file does not hold, and for a name that two images have.
std::vector<ImageDetails> ChooseImages(const std::wstring& file,
                                       const std::vector<ImageDetails>& images,
                                       const std::string& choice);

// The same for a command that takes one image only.
ImageDetails ChooseImage(const std::wstring& file, const std::vector<ImageDetails>& images,
                         const std::string& choice);

// PROCESSOR_ARCHITECTURE_... as people write it.
std::string ArchitectureText(std::uint32_t architecture);

} // namespace kestro::host
