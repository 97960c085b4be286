// image_info.h - what an image file tells of its images.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kestro::servicing {

// Texts are UTF-8, and empty when the file does not tell.
struct ImageInfo {
    unsigned index = 1;
    std::string name, description;
    std::uint64_t totalBytes = 0;
    unsigned directories = 0, files = 0;
    std::uint64_t created = 0, modified = 0; // as a FILETIME
    bool bootable = false;                   // the one that the file is booted from

    // Of the Windows in it.
    unsigned architecture = 0xFFFF; // PROCESSOR_ARCHITECTURE_...; unknown
    std::string productName, edition, installationType, hal, productType, productSuite, systemRoot;
    std::array<unsigned, 4> version{}; // with the service pack's build
    unsigned servicePack = 0;
    std::vector<std::string> languages;
    unsigned defaultLanguage = 0; // among them
};

// Of all images, in their order. Throws ServicingError.
std::vector<ImageInfo> ReadImageInfo(const std::string& path);

} // namespace kestro::servicing
