// inf_parser.cpp - splits the text of an INF into sections, lines and fields.
#include "inf_parser.h"

#include "servicing_error.h"

#include <algorithm>

namespace kestro::servicing {

static bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f' || c == '\x1A';
}

void InfParser::Refuse(Code code, const std::string& why) const
{
    throw ServicingError(code, inf_.Name() + " is no driver INF: " + why + " in line " +
                                   std::to_string(line_));
}

void InfParser::SkipBlanks()
{
    while (!AtEnd() && IsBlank(text_[at_]))
        ++at_;
}

void InfParser::SkipLine()
{
    at_ = std::min(text_.find('\n', at_), text_.size());
}

void InfParser::Parse()
{
    while (!AtEnd()) {
        SkipBlanks();
        if (!IsLineEnd() && text_[at_] == '[')
            ParseSectionName();
        else if (!IsLineEnd() && text_[at_] != ';')
            ParseLine();
        SkipLine();
        ++at_;
        ++line_;
    }
    if (!section_)
        Refuse(code::setup_expected_section, "there is no section");
}

void InfParser::ParseSectionName()
{
    constexpr std::size_t longest = 255;
    const auto end = text_.find_first_of("]\n", at_);
    if (end == std::string_view::npos || text_[end] != ']')
        Refuse(code::setup_bad_section_line, "a section's name has no end");
    const std::string name(text_.substr(at_ + 1, end - at_ - 1));
    if (name.size() > longest)
        Refuse(code::setup_section_too_long, "a section's name is too long");
    section_ = &inf_.sections_[LowerCase(name)];
    at_ = end;
}

void InfParser::ParseLine()
{
    if (!section_)
        Refuse(code::setup_expected_section, "text before the first section");
    InfFile::WrittenLine line;
    Ending ending = Ending::Line;
    std::string field = ParseField(true, ending);
    if (ending == Ending::Equals) {
        line.key = std::move(field);
        field = ParseField(false, ending);
    }
    line.values.push_back(std::move(field));
    while (ending == Ending::Comma)
        line.values.push_back(ParseField(false, ending));
    section_->push_back(std::move(line));
}

// A backslash with nothing but a comment behind it: the line goes on in the next one.
bool InfParser::SkipContinuation()
{
    const std::size_t start = at_;
    ++at_;
    SkipBlanks();
    if (!IsLineEnd() && text_[at_] == ';')
        SkipLine();
    if (AtEnd() || text_[at_] != '\n') {
        at_ = start;
        return false;
    }
    ++at_;
    ++line_;
    SkipBlanks();
    return true;
}

// Blanks around a field do not count, those in quotation marks do.
std::string InfParser::ParseField(bool mayBeKey, Ending& ending)
{
    std::string field;
    std::size_t kept = 0; // so much of the field stays when the blanks behind it go
    ending = Ending::Line;
    SkipBlanks();
    while (!IsLineEnd() && text_[at_] != ';') {
        const char c = text_[at_];
        if (c == ',' || (c == '=' && mayBeKey)) {
            ++at_;
            ending = c == ',' ? Ending::Comma : Ending::Equals;
            break;
        }
        if (c == '\\' && SkipContinuation())
            continue;
        if (c == '"') {
            ParseQuoted(field);
            kept = field.size();
            continue;
        }
        field += c;
        ++at_;
        if (!IsBlank(c))
            kept = field.size();
    }
    field.resize(kept);
    return field;
}

// Two quotation marks are one of the text. A text without an end ends with its line.
void InfParser::ParseQuoted(std::string& field)
{
    ++at_;
    for (; !IsLineEnd(); ++at_) {
        if (text_[at_] == '"') {
            ++at_;
            if (AtEnd() || text_[at_] != '"')
                return;
        }
        if (text_[at_] != '\r')
            field += text_[at_];
    }
}

} // namespace kestro::servicing
