// hive_layout.h - where in their cells a hive's keys and values have what. Offsets count from the cell's
// size on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kestro::servicing::hive_layout {

namespace key_field {
inline constexpr std::size_t flags = 0x06;
inline constexpr std::size_t written = 0x08; // FILETIME
inline constexpr std::size_t parent = 0x14;
inline constexpr std::size_t subkeys = 0x18; // how many
inline constexpr std::size_t subkeyList = 0x20;
inline constexpr std::size_t volatileList = 0x24;
inline constexpr std::size_t values = 0x28; // how many
inline constexpr std::size_t valueList = 0x2C;
inline constexpr std::size_t security = 0x30;
inline constexpr std::size_t className = 0x34;
// The greatest that any subkey or value of the key has, in bytes of UTF-16.
inline constexpr std::size_t longestSubkeyName = 0x38; // the upper half is something else
inline constexpr std::size_t longestValueName = 0x40;
inline constexpr std::size_t largestData = 0x44;
inline constexpr std::size_t nameLength = 0x4C;
inline constexpr std::size_t classNameLength = 0x4E;
inline constexpr std::size_t name = 0x50;
} // namespace key_field

namespace value_field {
inline constexpr std::size_t nameLength = 0x06;
inline constexpr std::size_t length = 0x08; // of the data
inline constexpr std::size_t data = 0x0C;   // a cell, or the data itself
inline constexpr std::size_t type = 0x10;
inline constexpr std::size_t flags = 0x14;
inline constexpr std::size_t name = 0x18;
} // namespace value_field

namespace list_field {
inline constexpr std::size_t count = 0x06;
inline constexpr std::size_t entries = 0x08;
} // namespace list_field

namespace pieces_field {
inline constexpr std::size_t count = 0x06;
inline constexpr std::size_t list = 0x08;
} // namespace pieces_field

namespace security_field {
inline constexpr std::size_t uses = 0x10;
} // namespace security_field

// Flags: the name has one byte a character.
inline constexpr std::uint16_t kNarrowKey = 0x20;
inline constexpr std::uint16_t kNarrowValue = 0x01;
// In a value's length: up to four bytes stand in the place of their cell.
inline constexpr std::uint32_t kInline = 0x80000000;
// What is larger is in pieces of that size.
inline constexpr std::size_t kLargestData = 16344;

} // namespace kestro::servicing::hive_layout
