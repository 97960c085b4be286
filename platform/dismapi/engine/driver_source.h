// driver_source.h - a driver package where it comes from, before it is added.
#pragma once

#include "catalog.h"
#include "driver_package.h"
#include "image_windows.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

// A package whose files are all there, below the folder of its INF.
class DriverSource {
  public:
    struct File {
        std::string path; // below the package's folder, '/' between its parts
        std::filesystem::path source;
    };

    // Throws for a package that cannot be added: without a class, for another Windows, with a file
    // missing or named outside its folder.
    explicit DriverSource(const DriverPackage& package);

    const DriverPackage& Package() const { return package_; }
    // The INF as the driver store names it.
    std::string StoredInf() const;
    const std::optional<std::filesystem::path>& Catalog() const { return catalog_; }
    // The INF, the catalog and every file, each once.
    const std::vector<File>& Files() const { return files_; }
    std::uint64_t Size() const;
    // The digits of a folder in the driver store: a hash of names and contents.
    std::string Hash() const;

    // Throws unless the catalog vouches for the package, or `forceUnsigned` does without.
    CatalogVerdict CheckSignature(const ImageWindows& windows, bool forceUnsigned) const;

  private:
    void AddFile(const std::string& path, const std::filesystem::path& source);

    const DriverPackage& package_;
    std::optional<std::filesystem::path> catalog_;
    std::vector<File> files_;
};

} // namespace kestro::servicing
