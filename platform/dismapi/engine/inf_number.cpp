// inf_number.cpp - numbers as INFs write them.
#include "inf_number.h"

#include <charconv>
#include <cstdlib>

namespace kestro::servicing {

std::uint64_t InfNumber(const std::string& text)
{
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    return std::strtoull(text.c_str(), nullptr, hexadecimal ? 16 : 10);
}

bool IsNumber(const std::string& text, int base, std::uint32_t& number)
{
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, base);
    return error == std::errc() && rest == end;
}

} // namespace kestro::servicing
