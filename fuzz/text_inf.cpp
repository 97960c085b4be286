// text_inf.cpp - an INF's text as sections of lines, split in the simplest way.
#include "text_inf.h"

#include <algorithm>
#include <sstream>

namespace kestro::fuzz {
namespace {

using servicing::EqualNames;
using servicing::InfLine;

std::string Trimmed(std::string text)
{
    const char* const blanks = " \t\r\"";
    text.erase(0, std::min(text.find_first_not_of(blanks), text.size()));
    text.erase(text.find_last_not_of(blanks) + 1);
    return text;
}

InfLine LineOf(const std::string& text)
{
    InfLine line;
    const auto equals = text.find('=');
    if (equals != std::string::npos)
        line.key = Trimmed(text.substr(0, equals));
    std::istringstream values(equals == std::string::npos ? text : text.substr(equals + 1));
    for (std::string value; std::getline(values, value, ',');)
        line.values.push_back(Trimmed(value));
    return line;
}

} // namespace

TextInf::TextInf(const std::string& text)
{
    // SetupAPI hands out C strings.
    std::istringstream lines(text.substr(0, text.find('\0')));
    for (std::string line; std::getline(lines, line);) {
        line = Trimmed(line.substr(0, line.find(';')));
        if (line.starts_with("["))
            sections_.push_back({line.substr(1, line.find(']') - 1), {}});
        else if (!line.empty() && !sections_.empty())
            sections_.back().second.push_back(LineOf(line));
    }
}

std::vector<std::string> TextInf::Names() const
{
    std::vector<std::string> names;
    for (const auto& section : sections_)
        names.push_back(section.first);
    return names;
}

std::vector<InfLine> TextInf::Section(const std::string& name) const
{
    for (const auto& section : sections_)
        if (EqualNames(section.first, name))
            return section.second;
    return {};
}

} // namespace kestro::fuzz
