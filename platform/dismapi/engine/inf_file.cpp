// inf_file.cpp - an INF file: its sections and lines.
#include "inf_file.h"

#include "file_system.h"
#include "inf_parser.h"
#include "servicing_error.h"
#include "text_encoding.h"

#include <algorithm>
#include <cstdio>

namespace fs = std::filesystem;

namespace kestro::servicing {

// The largest INFs of Windows have a few million bytes.
constexpr std::uintmax_t kLargestInf = 16 << 20;
constexpr std::size_t kLargestSection = 128 << 20;

InfFile InfFile::Parse(std::string_view text, const std::string& name, unsigned language)
{
    InfFile inf;
    inf.name_ = LowerCase(name);
    InfParser(text, inf).Parse();
    inf.ReadStrings(language);
    const std::string signature = inf.Value("Version", "Signature");
    if (!EqualNames(signature, "$Windows NT$") && !EqualNames(signature, "$Chicago$"))
        throw ServicingError(code::setup_wrong_style, name + " has no signature of a Windows INF");
    return inf;
}

InfFile InfFile::Open(const fs::path& file, unsigned language)
{
    std::error_code unknown;
    if (fs::file_size(file, unknown) > kLargestInf && !unknown)
        throw ServicingError(code::setup_general_syntax,
                             file.string() + " is too large for an INF");
    InfFile inf = Parse(TextOfFile(ReadWholeFile(file)), file.filename().string(), language);
    inf.folder_ = file.parent_path();
    return inf;
}

// The more exact section wins, string by string.
void InfFile::ReadStrings(unsigned language)
{
    char exact[32];
    char primary[32];
    std::snprintf(exact, sizeof exact, "strings.%04x", language);
    std::snprintf(primary, sizeof primary, "strings.%04x", language & 0x3FF);
    for (const char* const section :
         {static_cast<const char*>(exact), static_cast<const char*>(primary), "strings"}) {
        const auto found = sections_.find(section);
        if (found == sections_.end())
            continue;
        for (const auto& line : found->second)
            if (!line.key.empty())
                strings_.emplace(LowerCase(line.key), line.values.front());
    }
}

bool InfFile::Has(const std::string& section) const
{
    return sections_.count(LowerCase(section)) != 0;
}

InfField InfFile::FieldOf(const std::string& written) const
{
    return {written, WithStrings(written)};
}

std::vector<InfLine> InfFile::Section(const std::string& name) const
{
    std::vector<InfLine> lines;
    std::size_t size = 0;
    const auto found = sections_.find(LowerCase(name));
    if (found == sections_.end())
        return lines;
    lines.reserve(found->second.size());
    for (const auto& written : found->second) {
        InfLine line{FieldOf(written.key), {}};
        line.values.reserve(written.values.size());
        for (const auto& value : written.values)
            line.values.push_back(FieldOf(value));
        if (line.key.written.empty() && line.values.size() == 1)
            line.key = line.values.front();
        size += line.Size();
        if (size > kLargestSection)
            throw ServicingError(code::setup_general_syntax,
                                 name_ + " has too large a section [" + name + "]");
        lines.push_back(std::move(line));
    }
    return lines;
}

std::string InfFile::Value(const std::string& section, const std::string& key) const
{
    const auto found = sections_.find(LowerCase(section));
    if (found != sections_.end())
        for (const auto& line : found->second)
            if (EqualNames(WithStrings(line.key), key))
                return WithStrings(line.values.front());
    return {};
}

std::string InfFile::WithStrings(const std::string& written) const
{
    // Windows makes no longer text out of a field either; what is too long stays a token.
    constexpr std::size_t longest = 4096;
    std::string text;
    std::size_t at = 0;
    while (at < written.size()) {
        const auto open = std::min(written.find('%', at), written.size());
        text.append(written, at, open - at);
        const auto close = open < written.size() ? written.find('%', open + 1) : std::string::npos;
        if (close == std::string::npos) {
            text.append(written, open, std::string::npos);
            break;
        }
        const auto found = strings_.find(LowerCase(written.substr(open + 1, close - open - 1)));
        if (close == open + 1)
            text += '%';
        else if (found != strings_.end() && text.size() + found->second.size() < longest)
            text += found->second;
        else
            text.append(written, open, close - open + 1);
        at = close + 1;
    }
    return text;
}

} // namespace kestro::servicing
