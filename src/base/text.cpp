// text.cpp - conversions between the ANSI code page and wide text.
#include "base/text.h"

#include <cstring>
#include <cwchar>

#include <windows.h>

namespace kestro::library {

std::wstring ToWide(const char* text)
{
    if (text == nullptr)
        return {};

    // The terminator is converted with the text: the result ends at the first zero.
    const int narrowLength = static_cast<int>(std::strlen(text)) + 1;
    const int wideLength = MultiByteToWideChar(CP_ACP, 0, text, narrowLength, nullptr, 0);
    if (wideLength <= 0)
        throw ConversionFailed();

    std::wstring wide(static_cast<std::size_t>(wideLength), L'\0');
    if (MultiByteToWideChar(CP_ACP, 0, text, narrowLength, wide.data(), wideLength) <= 0)
        throw ConversionFailed();
    wide.resize(std::wcslen(wide.c_str()));
    return wide;
}

} // namespace kestro::library
