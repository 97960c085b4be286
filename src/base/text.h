// text.h - conversions between the ANSI code page and wide text.
#pragma once

#include <string>

namespace kestro::library {

// The platform cannot convert a text.
struct ConversionFailed {};

// Narrow ANSI text as wide text, up to its terminator. A null text comes out empty. Throws
// ConversionFailed, and std::bad_alloc when memory runs out.
std::wstring ToWide(const char* text);

} // namespace kestro::library
