// inf_package.h - reads what the driver store needs out of an INF.
#pragma once

#include "driver_package.h"
#include "image_windows.h"
#include "inf_library.h"

#include <optional>

namespace kestro::servicing {

// What an INF does not say is empty in the result, and the store decides what it needs. Throws for an
// INF that is made to take more memory than any driver's.
DriverPackage ReadPackage(const InfFile& inf, const ImageWindows& windows, InfLibrary& library);

// Reads packages for one image: the image's Windows and what its INFs include are read once, with the
// first package.
class PackageReader {
  public:
    explicit PackageReader(std::filesystem::path imageRoot) : root_(std::move(imageRoot)) {}

    // Throws for what is no INF, and for an image whose registry cannot be read.
    DriverPackage Read(const std::filesystem::path& inf);
    const ImageWindows& Windows();

  private:
    std::filesystem::path root_;
    std::optional<ImageWindows> windows_;
    std::optional<InfLibrary> library_;
};

} // namespace kestro::servicing
