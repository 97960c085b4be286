// inf_parser.h - splits the text of an INF into sections, lines and fields.
#pragma once

#include "codes.h"
#include "inf_file.h"

namespace kestro::servicing {

class InfParser {
  public:
    InfParser(std::string_view text, InfFile& inf) : text_(text), inf_(inf) {}

    // Throws with SetupAPI's code for a text that is no INF.
    void Parse();

  private:
    enum class Ending { Equals, Comma, Line };

    [[noreturn]] void Refuse(Code code, const std::string& why) const;
    bool AtEnd() const { return at_ >= text_.size(); }
    bool IsLineEnd() const { return AtEnd() || text_[at_] == '\n'; }
    void SkipBlanks();
    void SkipLine();
    bool SkipContinuation();
    void ParseSectionName();
    void ParseLine();
    std::string ParseField(bool mayBeKey, Ending& ending);
    void ParseQuoted(std::string& field);

    std::string_view text_;
    InfFile& inf_;
    std::size_t at_ = 0;
    std::size_t line_ = 1;
    std::vector<InfFile::WrittenLine>* section_ = nullptr;
};

} // namespace kestro::servicing
