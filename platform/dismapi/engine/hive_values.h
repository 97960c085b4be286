// hive_values.h - registry values as a hive stores them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kestro::servicing {

namespace registry {
inline constexpr std::uint32_t none = 0;
inline constexpr std::uint32_t text = 1;
inline constexpr std::uint32_t expandable = 2;
inline constexpr std::uint32_t binary = 3;
inline constexpr std::uint32_t number = 4;
inline constexpr std::uint32_t texts = 7;
inline constexpr std::uint32_t longNumber = 11;
} // namespace registry

struct HiveValue {
    std::string name; // empty for the default value
    std::uint32_t type = registry::none;
    std::string data;

    bool operator==(const HiveValue&) const = default;
};

HiveValue TextValue(const std::string& name, const std::string& text);
HiveValue ExpandableValue(const std::string& name, const std::string& text);
HiveValue TextsValue(const std::string& name, const std::vector<std::string>& texts);
HiveValue NumberValue(const std::string& name, std::uint32_t number);
HiveValue LongNumberValue(const std::string& name, std::uint64_t number);
HiveValue BytesValue(const std::string& name, const std::string& bytes);

// What values of these types hold; empty or 0 for data that is cut off.
std::string TextOf(const HiveValue& value);
std::vector<std::string> TextsOf(const HiveValue& value);
std::uint32_t NumberOf(const HiveValue& value);

// Registry text is UTF-16. Throws for what is not UTF-8.
std::string Utf16(std::string_view utf8);
// Little-endian.
std::string NumberBytes(std::uint64_t number, int bytes);
// Now in 100 ns steps since 1601, as FILETIME values are stored.
std::string FileTimeNow();

} // namespace kestro::servicing
