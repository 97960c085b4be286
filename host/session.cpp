// session.cpp - what every command starts from.
#include "session.h"

#include "direct_command.h"

#include <filesystem>
#include <map>

namespace kestro::host {
namespace fs = std::filesystem;

namespace {

std::wstring LibraryPath(const Options& options)
{
    if (!options.library.empty())
        return FullPath(options.library);
    wchar_t program[32768] = {};
    GetModuleFileNameW(nullptr, program, 32767);
    return fs::path(program).replace_filename(L"Kestro.dll").wstring();
}

// A library stays loaded for the whole run: Wine cannot load a native half like DismApi.dll's twice.
const Library& Loaded(std::wstring path)
{
    static std::map<std::wstring, Library> libraries;
    return libraries.try_emplace(path, path).first->second;
}

} // namespace

Session::Session(const Context& context, std::string command)
    : context_(context), command_(std::move(command)),
      library_(Loaded(LibraryPath(context.options))),
      operations_(library_, context.options.GetForm(), FollowingRunner(context.out->LogFollower())),
      logFile_(LogFileOf(context.options))
{
}

nlohmann::json Session::Document(const Outcome& outcome) const
{
    nlohmann::json document = {{"command", command_},
                               {"form", context_.options.wide ? "wide" : "narrow"},
                               {"succeeded", outcome.succeeded},
                               {"certain", outcome.certain},
                               {"returned", outcome.returned},
                               {"elapsed_ms", outcome.elapsed.count()}};
    document.update(ToJson(outcome.report));
    if (outcome.failure) {
        nlohmann::json failure = CodeToJson(outcome.failure->hresult);
        failure["function"] = outcome.failure->function;
        failure["step"] = outcome.step;
        failure["last_error"] = outcome.lastError ? nlohmann::json(*outcome.lastError) : nullptr;
        document["failure"] = failure;
    }
    return document;
}

int Session::Finish(const Outcome& outcome, const std::string& done,
                    const nlohmann::json& extra) const
{
    if (Out().Json()) {
        nlohmann::json document = Document(outcome);
        document.update(extra);
        Out().Document(document);
    }
    Out().Steps(outcome.report);
    if (outcome.succeeded) {
        Out().Line(done);
        return kExitSuccess;
    }
    if (outcome.failure) {
        Out().Failed(outcome.failure->function, outcome.failure->hresult, outcome.lastError);
        Out().Progress("The platform's own log: " + Shown(logFile_));
    } else if (!outcome.reported) {
        Out().Error(command_ + (outcome.certain
                                    ? " failed, and the result file cannot be read"
                                    : " failed, as far as anybody can tell: the result file cannot "
                                      "be read"));
    } else {
        Out().Error(command_ +
                    (outcome.certain
                         ? " failed, and the result file does not say why"
                         : " failed, as far as anybody can tell: the result file says neither"));
    }
    return kExitFailed;
}

} // namespace kestro::host
