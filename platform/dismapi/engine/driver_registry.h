// driver_registry.h - where driver packages are in an offline image's registry.
#pragma once

#include "driver_package.h"
#include "image_windows.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kestro::servicing {

inline constexpr char kDatabaseKey[] = "DriverDatabase";
inline constexpr char kLockdownKey[] =
    "Microsoft\\Windows\\CurrentVersion\\Setup\\PnpLockdownFiles";

// What the registry is told of a package.
struct DriverEntry {
    const DriverPackage* package = nullptr;
    const ImageWindows* windows = nullptr;
    std::string published;  // "oem0.inf"
    std::string folder;     // name of the folder in the driver store's repository
    std::string storedInf;  // name of the INF in that folder
    std::uint64_t size = 0; // of the package's files
    // Of the catalog.
    std::string signer;
    std::uint32_t signerScore = 0;
    std::optional<std::uint32_t> catalogAttributes;
    std::string submissionId;
};

// The number in "oem7.inf"; nothing for any other name.
std::optional<unsigned> OemNumber(std::string_view published);

} // namespace kestro::servicing
