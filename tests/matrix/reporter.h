// reporter.h - the platform calls that one export's report is made of.
#pragma once

#include "matrix/model.h"

#include <optional>

namespace kestro::test {

// A wide text in the ANSI code page, and back.
std::string ToAnsi(const std::wstring& text);
std::wstring ToWide(const std::string& text);

// A key, or none: the platform then takes the write for a deletion.
using ModelKey = std::optional<std::string>;

class Reporter {
  public:
    explicit Reporter(const Situation& situation) : situation_(situation) {}

    void Event(ExpectedEvent event);
    // A platform call and its answer; $ in the arguments stands for the session.
    HRESULT Call(const std::string& function, std::string arguments);

    // One key of a section that is not the log's, and the stamp.
    void Write(const std::string& section, const ModelKey& key, const std::string& value);
    void WriteLastError(const std::string& section, const ModelKey& key);
    // A line of the log; texts that are wide already need no conversion.
    void Log(const std::string& text, bool converted = true);
    // The two lines of a failure.
    void LogFailure(const std::string& function, HRESULT result);
    void Print(const std::wstring& text);
    void PrintCode(const wchar_t* format, HRESULT result);
    // The copy of a name and its text in the ANSI code page.
    void ConvertName(const std::string& shown);

    void WriteLiteral(const char* section, const char* key, const char* value);
    void Returns(unsigned value) { Event(Format("returns %u", value)); }

    bool Wide() const { return situation_.form == Form::wide; }
    void OpenSession() { session_ = situation_.session; }
    ExpectedEvents Take() { return std::move(events_); }

  private:
    std::tm Clock();
    std::string File() const { return situation_.has_result_file ? "ResultFile" : "NULL"; }
    void Profile(char writer, const std::string& section, const std::string& key,
                 const std::string& value, const std::string& file);
    void Convert(const std::string& text);
    void Stamp(bool wide);
    void WriteStep(const std::string& section, const ModelKey& key, const std::string& value);

    const Situation& situation_;
    ExpectedEvents events_;
    DWORD last_error_ = 0;
    int readings_ = 0;
    int lines_ = 1;
    unsigned session_ = 0;
};

} // namespace kestro::test
