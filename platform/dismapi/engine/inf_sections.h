// inf_sections.h - an INF file after parsing: sections of lines, strings substituted, texts in UTF-8.
#pragma once

#include "image_tree.h"

#include <string>
#include <vector>

namespace kestro::servicing {

struct InfLine {
    std::string key; // empty for a line without one
    std::vector<std::string> values;

    // Values are counted from 0; empty past the last one.
    std::string Value(std::size_t index) const
    {
        return index < values.size() ? values[index] : std::string();
    }
};

class InfSections {
  public:
    virtual ~InfSections() = default;

    virtual std::vector<std::string> Names() const = 0;
    // Names compare without case; empty if there is no such section.
    virtual std::vector<InfLine> Section(const std::string& name) const = 0;

    // First value of the section's first line with that key.
    std::string Value(const std::string& section, const std::string& key) const
    {
        for (const auto& line : Section(section))
            if (EqualNames(line.key, key))
                return line.Value(0);
        return {};
    }
    bool Has(const std::string& section) const
    {
        for (const auto& name : Names())
            if (EqualNames(name, section))
                return true;
        return false;
    }
};

} // namespace kestro::servicing
