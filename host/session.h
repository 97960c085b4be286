// session.h - what every command starts from: the loaded library's operations, the files they write, and the
// way from an outcome to what the user sees.
#pragma once

#include "commands.h"
#include "paths.h"

namespace kestro::host {

class Session {
  public:
    Session(const Context& context, std::string command);

    Output& Out() const { return *context_.out; }
    const Library& GetLibrary() const { return library_; }
    const Operations& Kestro() const { return operations_; }
    const std::wstring& LogFile() const { return logFile_; }
    // Before the first of several calls: what is in the way must not be met halfway.
    void RequireNewResults(std::size_t calls) const
    {
        host::RequireNewResults(context_.options.result, static_cast<int>(calls));
    }
    ResultPath NextResult() { return NextResult(context_.options.GetForm()); }
    ResultPath NextResult(Form form) { return ResultPath(context_.options.result, ++calls_, form); }
    Files FilesWith(const ResultPath& result) const { return {logFile_, result.Text()}; }

    // Shows an outcome and returns the exit code. Extra goes into the document.
    int Finish(const Outcome& outcome, const std::string& done,
               const nlohmann::json& extra = nlohmann::json::object()) const;
    // What every document of a command holds.
    nlohmann::json Document(const Outcome& outcome) const;

  private:
    Context context_;
    std::string command_;
    const Library& library_;
    Operations operations_;
    std::wstring logFile_;
    int calls_ = 0;
};

} // namespace kestro::host
