// inf_file.h - an INF file: its sections and lines. Texts are UTF-8.
#pragma once

#include "image_tree.h"

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace kestro::servicing {

// A field without its quotation marks, as written and with the INF's strings put in.
struct InfField {
    std::string written; // "%Vendor% device"
    std::string text;    // "Kestro Samples device"
};

struct InfLine {
    InfField key; // without one, the value of a line that has no other; else empty
    std::vector<InfField> values;

    const std::string& Key() const { return key.text; }
    // Values are counted from 0; empty past the last one.
    const std::string& Value(std::size_t index) const { return Field(index).text; }
    const InfField& Field(std::size_t index) const
    {
        static const InfField none;
        return index < values.size() ? values[index] : none;
    }
    // Bytes in memory, about.
    std::size_t Size() const
    {
        std::size_t size = sizeof *this + key.text.size();
        for (const auto& value : values)
            size += sizeof value + value.text.size();
        return size;
    }
};

// Wine's SetupAPI reads INF files too, but hands out texts only with their strings put in; Windows'
// driver database holds many of them as tokens. So this is the one reader, of every INF.
class InfFile {
  public:
    // `language` (0x409) chooses among [Strings.0409], [Strings.0009] and [Strings].
    // Throws with SetupAPI's own code for what is no INF, and with the file's for what cannot be read.
    static InfFile Open(const std::filesystem::path& file, unsigned language = 0);
    // `text` is UTF-8; `name` is for messages.
    static InfFile Parse(std::string_view text, const std::string& name, unsigned language = 0);

    // Empty for an INF that did not come from a file.
    const std::filesystem::path& Folder() const { return folder_; }
    // In lower case.
    const std::string& Name() const { return name_; }

    // Names compare without case. Sections of one name are one section.
    bool Has(const std::string& section) const;
    // Throws for a section that its strings make larger than memory should hold.
    std::vector<InfLine> Section(const std::string& name) const;
    // First value of the section's first line with that key.
    std::string Value(const std::string& section, const std::string& key) const;

    // The strings of the language, by their names in lower case.
    const std::map<std::string, std::string>& Strings() const { return strings_; }
    // Puts the strings into a text; %% becomes one %, and what is no string (%12%) stays.
    std::string WithStrings(const std::string& written) const;

  private:
    friend class InfParser;
    struct WrittenLine {
        std::string key;
        std::vector<std::string> values;
    };

    void ReadStrings(unsigned language);
    InfField FieldOf(const std::string& written) const;

    std::filesystem::path folder_;
    std::string name_;
    std::map<std::string, std::vector<WrittenLine>> sections_; // by their names in lower case
    std::map<std::string, std::string> strings_;
};

} // namespace kestro::servicing
