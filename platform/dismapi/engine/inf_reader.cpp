// inf_reader.cpp - an INF's sections together with those that they need of other INFs.
#include "inf_reader.h"

#include "servicing_error.h"

#include <algorithm>

namespace kestro::servicing {

// What the largest packages read is a tenth of it.
constexpr std::size_t kMostBytes = 128 << 20;
// That one section needs, also by way of others.
constexpr std::size_t kMostSections = 100;

std::vector<InfLine> InfReader::Lines(const InfFile& inf, const std::string& name)
{
    auto lines = inf.Section(name);
    bytesRead_ += sizeof(InfLine);
    for (const auto& line : lines)
        bytesRead_ += line.Size();
    if (bytesRead_ > kMostBytes)
        throw ServicingError(code::setup_general_syntax,
                             inf_.Name() + " names its sections too often");
    return lines;
}

const InfFile* InfReader::Holder(const InfFile& from, const std::string& name) const
{
    if (from.Has(name))
        return &from;
    for (const InfFile* const inf : included_)
        if (inf->Has(name))
            return inf;
    return nullptr;
}

void InfReader::Include(const InfLine& line)
{
    for (const auto& name : line.values) {
        const InfFile* const found = library_.Find(name.text, inf_.Folder());
        if (found && std::find(included_.begin(), included_.end(), found) == included_.end())
            included_.push_back(found);
    }
}

void InfReader::AddNeeded(const InfFile& inf, const InfLine& needs, PlacedLines& lines,
                          Visited& visited)
{
    for (const auto& name : needs.values)
        if (const InfFile* const holder = Holder(inf, name.text))
            AddSection(*holder, name.text, lines, visited);
}

void InfReader::AddSection(const InfFile& inf, const std::string& name, PlacedLines& lines,
                           Visited& visited)
{
    // A section that needs itself, also by way of others, is there once.
    const std::pair section(&inf, LowerCase(name));
    if (visited.size() >= kMostSections ||
        std::find(visited.begin(), visited.end(), section) != visited.end())
        return;
    visited.push_back(section);
    auto own = Lines(inf, name);
    // The order of the two directives says nothing.
    for (const auto& line : own)
        if (EqualNames(line.Key(), "Include"))
            Include(line);
    for (auto& line : own) {
        if (EqualNames(line.Key(), "Needs"))
            AddNeeded(inf, line, lines, visited);
        else if (!EqualNames(line.Key(), "Include"))
            lines.push_back({&inf, std::move(line)});
    }
}

PlacedLines InfReader::Section(const std::string& name)
{
    return Named(inf_, name);
}

PlacedLines InfReader::Named(const InfFile& from, const std::string& name)
{
    PlacedLines lines;
    Visited visited;
    if (const InfFile* const holder = Holder(from, name))
        AddSection(*holder, name, lines, visited);
    return lines;
}

PlacedLines InfReader::Listed(const PlacedLines& section, const char* directive)
{
    PlacedLines lines;
    for (const auto& [inf, line] : section) {
        if (!EqualNames(line.Key(), directive))
            continue;
        for (const auto& name : line.values) {
            const InfFile* const holder = Holder(*inf, name.text);
            if (!holder)
                continue;
            for (auto& listed : Lines(*holder, name.text))
                lines.push_back({holder, std::move(listed)});
        }
    }
    return lines;
}

} // namespace kestro::servicing
