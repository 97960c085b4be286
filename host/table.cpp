// table.cpp - columns for people.
#include "table.h"

#include <algorithm>

namespace kestro::host {
namespace {

// Characters, not bytes: a continuation byte of UTF-8 takes no room of its own.
std::size_t WidthOf(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

} // namespace

void ShowTable(const Output& out, const std::vector<std::string>& headings,
               const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths;
    widths.reserve(headings.size());
    for (const std::string& heading : headings)
        widths.push_back(WidthOf(heading));
    for (const auto& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], WidthOf(row[i]));
    const auto show = [&](const std::vector<std::string>& row) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size())
                line += std::string(widths[i] + 2 - WidthOf(row[i]), ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out.Line(line);
    };
    show(headings);
    for (const auto& row : rows)
        show(row);
}

} // namespace kestro::host
