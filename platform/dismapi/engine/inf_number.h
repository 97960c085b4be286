// inf_number.h - numbers as INFs write them.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::servicing {

// Decimal, or hexadecimal after "0x"; 0 for what is no number.
std::uint64_t InfNumber(const std::string& text);
// Digits to the base and nothing else, below 2^32.
bool IsNumber(const std::string& text, int base, std::uint32_t& number);

} // namespace kestro::servicing
