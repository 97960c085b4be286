// expectation.h - what a call has to do, spelled out event by event.
//
// A test states the call's steps in the terms of the ResultFile (Write, Log, ReportFailure); each
// becomes the platform calls that the narrow or the wide form has to make for it.
#pragma once

#include "support/kestro_library.h"
#include "support/platform.h"

#include <optional>
#include <string>

namespace kestro::test {

// A key, or none at all: a profile write without a key.
using Key = std::optional<std::string>;

// A wide text in the ANSI code page.
std::string Narrow(const std::wstring& text);

std::wstring Hexadecimal(HRESULT value);

class Expectation {
  public:
    // result_file is how the ResultFile's path is shown: its name, or NULL.
    explicit Expectation(Form form, const Script& script = {},
                         std::string result_file = "ResultFile");

    // Any event.
    Expectation& Event(ExpectedEvent event);
    // A platform call with its arguments as shown and its result.
    Expectation& Call(const std::string& call, HRESULT result);
    // One key of a step section and the stamp that follows it.
    Expectation& Write(const std::string& section, const Key& key, const std::string& value);
    // The same with the thread's last error, read at this point, as the value.
    Expectation& WriteLastError(const std::string& section, const Key& key);
    // One line of the log and the stamp that follows it.
    Expectation& Log(const std::string& text);
    // One line of the wide log whose text is wide already.
    Expectation& LogLiteral(const std::string& text);
    // The two log lines of a failure and the section's ErrorCode.
    Expectation& ReportFailure(const std::string& section, const std::string& function,
                               HRESULT result);
    // A failing clean-up call: its lines carry the HRESULT that is given.
    Expectation& ReportCleanUp(const std::string& section, const std::string& function,
                               HRESULT logged);
    // A line of the console.
    Expectation& ConsoleWide(const std::wstring& text);
    Expectation& ReturnCodeLine(HRESULT result);
    Expectation& Returns(unsigned value);

    // Parts of the above, for tests that need them alone.
    Expectation& Stamp();
    Expectation& WideStamp();
    Expectation& Convert(const std::string& text);
    Expectation& WriteRaw(Form writer, const std::string& section, const Key& key,
                          const std::string& value, const std::string& file);

    const ExpectedEvents& Events() const { return events_; }
    Form GetForm() const { return form_; }

  private:
    Expectation& LogLine(const std::string& text, bool convert_text);
    std::tm ReadClock();
    DWORD ReadLastError();
    void NarrowStamp(const std::string& file);
    void WideStepWrite(const std::string& section, const Key& key, const std::string& value);

    Form form_;
    Script script_;
    std::string result_file_;
    ExpectedEvents events_;
    DWORD last_error_ = 0;
    int clock_readings_ = 0;
    int line_ = 1;
};

} // namespace kestro::test
