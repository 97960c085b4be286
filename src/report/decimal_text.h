// decimal_text.h - the text form of every number in a ResultFile.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::library {

// Base ten, no padding, no plus sign: 0x80070002 reads "-2147024894".
inline std::string ToDecimalText(std::int32_t value)
{
    return std::to_string(value);
}

} // namespace kestro::library
