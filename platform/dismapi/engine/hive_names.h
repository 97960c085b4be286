// hive_names.h - the names of keys and values as a hive stores and orders them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kestro::servicing {

struct StoredName {
    std::string bytes;
    bool narrow = false; // one byte a character, as far as Latin-1 goes; else UTF-16LE
};

// Throws for what is not UTF-8.
StoredName NameBytes(const std::string& utf8);
// UTF-8; halves of characters become U+FFFD.
std::string NameText(std::string_view bytes, bool narrow);

// What keys are ordered by.
std::u16string UpperName(std::string_view bytes, bool narrow);
// What a list says of each name beside its cell: of the whole name, or its first four characters.
std::uint32_t NameHash(const std::u16string& upper);
std::string NameHint(std::string_view bytes, bool narrow);

} // namespace kestro::servicing
