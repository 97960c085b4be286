// session.cpp - what every command starts from.
#include "session.h"

#include <filesystem>

namespace kestro::host {
namespace fs = std::filesystem;

std::wstring FullPath(const std::wstring& path)
{
    return fs::absolute(path).wstring();
}

std::wstring LibraryPath(const Options& options)
{
    if (!options.library.empty())
        return FullPath(options.library);
    wchar_t program[32768] = {};
    GetModuleFileNameW(nullptr, program, 32767);
    return fs::path(program).replace_filename(L"Kestro.dll").wstring();
}

Session::Session(const Options& options, std::string command)
    : options_(options), command_(std::move(command)), out_(options.json),
      library_(LibraryPath(options)),
      logFile_(options.log.empty() ? (fs::temp_directory_path() / L"kestro-dism.log").wstring()
                                   : FullPath(options.log))
{
}

nlohmann::json Session::Document(bool succeeded, const CallResult& call) const
{
    nlohmann::json document = {{"command", command_},
                               {"form", options_.wide ? "wide" : "narrow"},
                               {"succeeded", succeeded},
                               {"returned", call.returned},
                               {"elapsed_ms", call.elapsed.count()}};
    document.update(ToJson(call.report));
    return document;
}

int Session::Finish(const CallResult& call, const Outcome& outcome, const std::string& done,
                    nlohmann::json extra)
{
    nlohmann::json document = Document(outcome.succeeded, call);
    document.update(extra);
    if (outcome.failure) {
        document["failure"] = CodeToJson(outcome.failure->hresult);
        document["failure"]["function"] = outcome.failure->function;
    }
    if (options_.json)
        out_.Document(document);
    out_.Steps(call.report);
    if (outcome.succeeded) {
        out_.Line(done);
        return kExitSuccess;
    }
    if (outcome.failure) {
        std::int32_t lastError = 0;
        for (const Step& step : call.report.steps)
            if (step.succeeded == false && lastError == 0)
                lastError = step.error.value_or(0);
        out_.Failed(outcome.failure->function, outcome.failure->hresult, lastError);
        out_.Progress("The platform's own log: " + detail::Utf8(logFile_));
    } else {
        out_.Error(command_ + " failed, and the result file does not say why");
    }
    return kExitFailed;
}

} // namespace kestro::host
