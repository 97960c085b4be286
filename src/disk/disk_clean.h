// disk_clean.h - wiping a disk.
#pragma once

#include <cstdint>

namespace kestro::library {

// The flags reach the service as they are.
std::int32_t CleanDiskNamed(const wchar_t* diskName, std::uint8_t force, std::uint8_t forceOEM,
                            std::uint8_t fullClean, const char* resultFile);

} // namespace kestro::library
