// windows_name.cpp - which names of files Windows can hold.
#include "windows_name.h"

#include <strings.h>

#include <algorithm>
#include <string_view>

namespace kestro::servicing {
namespace {

// Halves of surrogate pairs count as characters: Windows takes them, and libwim writes them so.
bool IsUtf8(const std::string& text)
{
    for (std::size_t i = 0; i < text.size();) {
        const auto first = static_cast<unsigned char>(text[i]);
        const std::size_t length = first < 0x80                    ? 1
                                   : first >= 0xC2 && first < 0xE0 ? 2
                                   : first >= 0xE0 && first < 0xF0 ? 3
                                   : first >= 0xF0 && first < 0xF5 ? 4
                                                                   : 0;
        if (length == 0 || text.size() - i < length)
            return false;
        for (std::size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80)
                return false;
        const auto second = length > 1 ? static_cast<unsigned char>(text[i + 1]) : 0;
        if ((first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90) ||
            (first == 0xF4 && second >= 0x90))
            return false;
        i += length;
    }
    return true;
}

bool IsDeviceName(const std::string& name)
{
    std::string stem = name.substr(0, name.find('.'));
    stem.erase(stem.find_last_not_of(' ') + 1);
    for (const char* const device : {"CON", "PRN", "AUX", "NUL"})
        if (strcasecmp(stem.c_str(), device) == 0)
            return true;
    const bool numbered = stem.size() == 4 && stem[3] >= '1' && stem[3] <= '9';
    return numbered &&
           (strncasecmp(stem.c_str(), "COM", 3) == 0 || strncasecmp(stem.c_str(), "LPT", 3) == 0);
}

} // namespace

const char* WhyNoWindowsName(const std::string& name)
{
    constexpr std::string_view reserved = "<>:\"/\\|?*";
    if (!IsUtf8(name))
        return "it is not UTF-8";
    if (std::any_of(name.begin(), name.end(), [&](char c) {
            return static_cast<unsigned char>(c) < 0x20 || reserved.find(c) != reserved.npos;
        }))
        return "it has a control character or one of < > : \" \\ | ? *";
    if (name.ends_with(' ') || name.ends_with('.'))
        return "it ends with a space or a full stop";
    if (IsDeviceName(name))
        return "it is the name of a device";
    return nullptr;
}

} // namespace kestro::servicing
