// disk_operations.h - wiping a disk, bringing it online and taking it offline.
#pragma once

#include <cstdint>

namespace kestro::library {

// The flags reach the service as they are.
std::int32_t CleanDisk(const wchar_t* diskName, std::uint8_t force, std::uint8_t forceOEM,
                       std::uint8_t fullClean, const char* resultFile);

// An HRESULT each.
std::int32_t OnlineDisk(const wchar_t* diskName);
std::int32_t OfflineDisk(const wchar_t* diskName);

} // namespace kestro::library
