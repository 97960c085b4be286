// sizes.cpp - sizes as people read them.
#include "sizes.h"

#include <cstdio>
#include <iterator>

namespace kestro::host {

std::string SizeText(std::uint64_t bytes)
{
    const char* const units[] = {"B", "KB", "MB", "GB", "TB"};
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; size >= 1024 && unit + 1 < std::size(units); ++unit)
        size /= 1024;
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", size, units[unit]);
    return text;
}

} // namespace kestro::host
