// hive_header.h - the first sector of a registry hive and of its logs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestro::servicing {

constexpr std::size_t kHiveSector = 512;
constexpr std::size_t kHiveBins = 0x1000; // where a hive's bins begin; cell offsets count from here

// Offsets of the header's fields.
namespace hive_field {
inline constexpr std::size_t sequence1 = 4; // counted up when a write begins
inline constexpr std::size_t sequence2 = 8; // and when it has ended
inline constexpr std::size_t written = 12;  // FILETIME
inline constexpr std::size_t type = 28;
inline constexpr std::size_t binsSize = 40;
inline constexpr std::size_t flags = 144;
inline constexpr std::size_t checksum = 508;
} // namespace hive_field

// Zero beyond the end.
std::uint32_t HiveWord(std::string_view bytes, std::size_t offset);
void SetHiveWord(std::string& bytes, std::size_t offset, std::uint32_t word);

// Whether the sector is a header whose checksum is right.
bool IsHiveHeader(std::string_view bytes);
void SetHiveChecksum(std::string& bytes);

} // namespace kestro::servicing
