// text.h - conversions between the ANSI code page and wide text.
#pragma once

#include <string>

namespace kestro {

// Narrow ANSI text as wide text, up to its terminator. A null text, or one the platform cannot
// convert, comes out empty.
std::wstring ToWide(const char* text);

} // namespace kestro
