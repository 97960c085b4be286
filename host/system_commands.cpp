// system_commands.cpp - disks, the INF install, and the self-test.
#include "session.h"
#include "usage_error.h"

#include <cstring>
#include <filesystem>

namespace kestro::host {
namespace {

using nlohmann::json;

int FinishDisk(const Session& session, const std::string& command, const std::wstring& name,
               const CallResult& call, int exitCode, const std::string& done, std::int32_t code)
{
    if (session.Out().Json()) {
        json document = session.Document(exitCode == kExitSuccess, call);
        document["disk"] = detail::Utf8(name);
        document["found"] = exitCode != kExitNotFound;
        if (exitCode == kExitFailed)
            document["failure"] = CodeToJson(code);
        session.Out().Document(document);
    }
    if (exitCode == kExitSuccess)
        session.Out().Line(done);
    else if (exitCode == kExitNotFound)
        session.Out().Error("there is no disk " + detail::Utf8(name));
    else
        session.Out().Failed(command, code, 0);
    return exitCode;
}

// The number in the line after a label, from the end of the log.
std::optional<std::int32_t> LastNumberAfter(const Report& report, std::string_view label)
{
    for (std::size_t i = report.log.size(); i-- > 1;)
        if (report.log[i - 1].text.starts_with(label))
            return detail::Number(report.log[i].text);
    return {};
}

bool Logged(const Report& report, std::string_view text)
{
    for (const LogLine& line : report.log)
        if (line.text.starts_with(text))
            return true;
    return false;
}

} // namespace

int DiskCleanCommand(const Options& options, const std::wstring& name, const CleanFlags& flags)
{
    Session session(options, "disk clean");
    if (!flags.yes)
        throw UsageError("this would wipe the disk " + detail::Utf8(name) +
                         (flags.full ? ", every sector of it" : ", its partitions and their data") +
                         (flags.force ? "; also with data volumes (--force)" : "") +
                         (flags.forceOem ? "; also with an OEM partition (--force-oem)" : "") +
                         ". Nothing was done. Add --yes to do it.");

    auto* const clean = session.Kestro().Get<decltype(CleanDisk)>("CleanDisk");
    const ResultPath path = session.NextResultPath();
    const std::string narrow = path.Narrow();
    session.Out().Progress("Cleaning " + detail::Utf8(name));
    const CallResult call = RunCall(
        path,
        [&] {
            return clean(name.c_str(), flags.force, flags.forceOem, flags.full, narrow.c_str());
        },
        session.Out().LogFollower());

    // 0 says failed as well as not found; the log tells them apart: a search that came to its end
    // leaves its last code, S_FALSE, and no failure.
    const auto last = LastNumberAfter(call.report, "Last HRESULT:");
    const bool notFound = call.returned == 0 && last == S_FALSE &&
                          Logged(call.report, "No more providers in the list");
    std::int32_t code = call.returned < 0 ? call.returned : last.value_or(0);
    if (code >= 0)
        code = LastNumberAfter(call.report, "CoCreateInstance HRESULT:").value_or(E_FAIL);
    return FinishDisk(session, "disk clean", name, call,
                      call.returned == 1 ? kExitSuccess
                      : notFound         ? kExitNotFound
                                         : kExitFailed,
                      "Cleaned " + detail::Utf8(name), code);
}

int DiskOnlineCommand(const Options& options, const std::wstring& name, bool online)
{
    const std::string command = online ? "disk online" : "disk offline";
    Session session(options, command);
    auto* const change = online ? session.Kestro().Get<decltype(OnlineDisk)>("OnlineDisk")
                                : session.Kestro().Get<decltype(OfflineDisk)>("OfflineDisk");
    const ResultPath path = session.NextResultPath();
    const CallResult call = RunCall(
        path, [&] { return change(name.c_str()); }, session.Out().LogFollower());
    // 1 is the search's last code: nothing found.
    return FinishDisk(session, command, name, call,
                      call.returned < 0    ? kExitFailed
                      : call.returned == 1 ? kExitNotFound
                                           : kExitSuccess,
                      detail::Utf8(name) + (online ? " is online" : " is offline"), call.returned);
}

int InfInstallCommand(const Options& options, const std::wstring& inf)
{
    const std::wstring path = FullPath(inf);
    if (!std::filesystem::is_regular_file(path))
        throw UsageError("there is no INF file " + detail::Utf8(path));
    Session session(options, "inf install");
    auto* const install = session.Kestro().Get<decltype(InfInstall)>("InfInstall");
    const ResultPath nothing = session.NextResultPath();
    const CallResult call = RunCall(
        nothing, [&] { return install(path.c_str()); }, session.Out().LogFollower());
    const bool installed = call.returned == 1;
    const std::int32_t code = HRESULT_FROM_WIN32(call.lastError);
    if (session.Out().Json()) {
        json document = session.Document(installed, call);
        document["inf"] = detail::Utf8(path);
        if (!installed)
            document["failure"] = CodeToJson(code);
        session.Out().Document(document);
    }
    if (installed)
        session.Out().Line("Installed " + detail::Utf8(path));
    else
        session.Out().Failed("inf install", code, static_cast<std::int32_t>(call.lastError));
    return installed ? kExitSuccess : kExitFailed;
}

namespace {

std::string PathOf(HMODULE module)
{
    wchar_t path[32768] = {};
    if (module == nullptr || GetModuleFileNameW(module, path, 32767) == 0)
        return "not loaded";
    return detail::Utf8(path);
}

// What the write test leaves, in either form: its keys arrive as given in both.
std::string WhatIsWrong(const Report& report)
{
    const Step* const test = report.Find("KESTRO_TEST");
    if (test == nullptr || test->other.size() != 1 || test->other[0].second != "TEST")
        return "[KESTRO_TEST] TEST=TEST is missing";
    if (report.log.size() != 1 || report.log[0].number != 2 ||
        report.log[0].text != "This is a test created by Kestro.dll")
        return "the log line is missing";
    if (report.lastWrite.size() != 14)
        return "[Status] LastWrite is missing";
    return {};
}

} // namespace

int SelfTestCommand(const Options& options)
{
    Session session(options, "selftest");
    const std::string kestroPath = PathOf(session.Kestro().Module());
    const std::string dismPath = PathOf(GetModuleHandleW(L"DismApi.dll"));
    session.Out().Line("Kestro.dll    " + kestroPath);
    session.Out().Line("DismApi.dll   " + dismPath);

    bool good = true;
    json forms = json::array();
    const auto run = [&](const char* form, const ResultPath& path,
                         const std::function<void()>& write) {
        const CallResult call = RunCall(
            path,
            [&] {
                write();
                return 0;
            },
            [](const LogLine&, std::chrono::milliseconds) {});
        const std::string wrong = WhatIsWrong(call.report);
        good = good && wrong.empty();
        session.Out().Line(std::string(form) + std::string(14 - std::strlen(form), ' ') +
                           (wrong.empty() ? "a host here reads what the library writes" : wrong));
        forms.push_back({{"form", form}, {"readable", wrong.empty()}, {"problem", wrong}});
    };
    {
        auto* const write = session.Kestro().Get<decltype(WriteTest)>("WriteTest");
        const ResultPath path = session.NextResultPath();
        const std::string narrow = path.Narrow();
        run("WriteTest", path, [&] { write(narrow.c_str()); });
    }
    {
        auto* const write = session.Kestro().Get<decltype(WriteTestW)>("WriteTestW");
        const ResultPath path = session.NextResultPath();
        run("WriteTestW", path, [&] { write(path.Wide().c_str()); });
    }
    if (session.Out().Json())
        session.Out().Document({{"command", "selftest"},
                                {"succeeded", good},
                                {"kestro_dll", kestroPath},
                                {"dismapi_dll", dismPath},
                                {"forms", forms}});
    return good ? kExitSuccess : kExitFailed;
}

} // namespace kestro::host
