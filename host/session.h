// session.h - what every command starts from: the loaded library, the paths as the library wants them,
// and the run of one image or driver call from its arguments to its outcome.
#pragma once

#include "commands.h"

namespace kestro::host {

std::wstring FullPath(const std::wstring& path);

class Session {
  public:
    Session(const Options& options, std::string command);

    const Output& Out() const { return out_; }
    const Library& Kestro() const { return library_; }
    Form GetForm() const { return options_.GetForm(); }
    const std::wstring& LogFile() const { return logFile_; }
    ResultPath NextResultPath() { return ResultPath(options_.result, ++calls_); }

    // Calls the form of an export that the user chose. Its ResultFile is the last argument.
    template <class Narrow, class Wide, class... Arguments>
    CallResult Call(const char* name, Arguments... arguments)
    {
        const ResultPath path(options_.result, ++calls_);
        if (GetForm() == Form::Wide) {
            auto* const function = library_.Get<Wide>((std::string(name) + "W").c_str());
            return RunCall(
                path, [&] { return function(arguments..., path.Wide().c_str()); },
                out_.LogFollower());
        }
        auto* const function = library_.Get<Narrow>(name);
        const std::string narrow = path.Narrow();
        return RunCall(
            path, [&] { return function(arguments..., narrow.c_str()); }, out_.LogFollower());
    }

    Outcome OutcomeOf(const CallResult& call) const
    {
        return kestro::OutcomeOf(GetForm(), static_cast<std::uint8_t>(call.returned), call.report);
    }
    // Shows an image or driver call's outcome and returns the exit code. Extra goes into the document.
    int Finish(const CallResult& call, const Outcome& outcome, const std::string& done,
               nlohmann::json extra = nlohmann::json::object());
    nlohmann::json Document(bool succeeded, const CallResult& call) const;

  private:
    Options options_;
    std::string command_;
    Output out_;
    Library library_;
    std::wstring logFile_;
    int calls_ = 0;
};

// A log file for the platform that the user did not ask for is removed with the command, unless the
// command failed and the user may want to read it.
std::wstring LibraryPath(const Options& options);

} // namespace kestro::host
