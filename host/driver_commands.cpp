// driver_commands.cpp - an image's drivers: add, remove, list, query.
#include "driver_list.h"
#include "session.h"

namespace kestro::host {
namespace {

using nlohmann::json;

int AddOne(Session& session, const std::wstring& image, const std::wstring& inf)
{
    session.Out().Progress("Adding " + detail::Utf8(inf));
    const CallResult call = session.Call<decltype(AddDriver), decltype(AddDriverW)>(
        "AddDriver", image.c_str(), inf.c_str(), session.LogFile().c_str());
    return session.Finish(call, session.OutcomeOf(call), "Added " + detail::Utf8(inf));
}

// The last error of a package of a list; nothing for one that was added. Its path is the key, in the
// ANSI code page.
std::optional<std::string> ErrorOf(const Report& report, const std::wstring& inf)
{
    const Step* const errors = report.Find("DISM_ADDDRIVER_ERRORS");
    if (errors == nullptr)
        return {};
    const std::wstring wide = inf;
    const int size = WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, nullptr, 0, nullptr, nullptr);
    std::string key(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_ACP, 0, wide.c_str(), -1, key.data(), size, nullptr, nullptr);
    key.pop_back();
    const std::string utf8 = detail::Utf8(detail::Wide(key, CP_ACP));
    // A profile file ends a key at its first equals sign.
    const std::string kept(detail::Trim(utf8.substr(0, utf8.find('='))));
    for (const auto& [name, value] : errors->other)
        if (detail::EqualNames(name, kept))
            return value;
    return {};
}

struct ListTotals {
    std::size_t done = 0, failed = 0, of = 0;
    json packages = json::array();
};

// Shows each package of one call once, however often it stood in the list.
void TellPackages(const Session& session, const Report& report, const DriverList& list,
                  ListTotals& totals)
{
    for (const std::wstring& inf : list.packages) {
        const auto error = ErrorOf(report, inf);
        ++totals.done;
        totals.failed += error.has_value();
        session.Out().Line("  " + std::to_string(totals.done) + " of " + std::to_string(totals.of) +
                           "  " + (error ? "failed " : "added  ") + "  " + detail::Utf8(inf));
        totals.packages.push_back({{"inf", detail::Utf8(inf)},
                                   {"added", !error},
                                   {"last_error", error ? json(*error) : json()}});
    }
    // The codes stand in the log, in the order of the failures.
    for (std::size_t i = 0; i < report.failures.size(); ++i)
        if (i == 0 || report.failures[i].hresult != report.failures[i - 1].hresult)
            session.Out().Failed(report.failures[i].function, report.failures[i].hresult, 0);
}

int AddMany(Session& session, const std::wstring& image, const std::vector<std::wstring>& infs)
{
    ListTotals totals;
    totals.of = infs.size();
    json calls = json::array();
    for (const DriverList& list : Arrange(infs)) {
        session.Out().Progress("Adding " + std::to_string(list.packages.size()) + " packages, " +
                               std::to_string(totals.done) + " of " + std::to_string(totals.of) +
                               " done");
        const auto entries = list.Entries();
        const CallResult call = session.Call<decltype(AddDriverList), decltype(AddDriverListW)>(
            "AddDriverList", image.c_str(), entries.data(), session.LogFile().c_str());
        const Outcome outcome = session.OutcomeOf(call);
        if (!outcome.succeeded)
            return session.Finish(call, outcome, "", {{"packages", totals.packages}});
        TellPackages(session, call.report, list, totals);
        calls.push_back(session.Document(true, call));
    }
    if (session.Out().Json())
        session.Out().Document({{"command", "driver add"},
                                {"succeeded", totals.failed == 0},
                                {"packages", totals.packages},
                                {"calls", calls}});
    session.Out().Line("Added " + std::to_string(totals.of - totals.failed) + " of " +
                       std::to_string(totals.of) + " packages");
    return totals.failed == 0 ? kExitSuccess : kExitFailed;
}

struct Listed {
    std::string published, original;
};

// The log's lines: "Driver Package 0 - PublishedName: oem0.inf - Original file name: ..."
std::vector<Listed> PackagesIn(const Report& report)
{
    constexpr std::string_view start = "Driver Package ", published = " - PublishedName: ",
                               original = " - Original file name: ";
    std::vector<Listed> packages;
    for (const LogLine& line : report.log) {
        const std::string& text = line.text;
        const std::size_t name = text.find(published), file = text.find(original);
        if (!text.starts_with(start) || name == std::string::npos || file == std::string::npos)
            continue;
        packages.push_back({text.substr(name + published.size(), file - name - published.size()),
                            text.substr(file + original.size())});
    }
    return packages;
}

} // namespace

int DriverAddCommand(const Options& options, const std::wstring& image,
                     const std::vector<std::wstring>& arguments)
{
    const std::vector<std::wstring> infs = FindInfs(arguments);
    Session session(options, "driver add");
    const std::wstring root = FullPath(image);
    return infs.size() == 1 ? AddOne(session, root, infs.front()) : AddMany(session, root, infs);
}

int DriverRemoveCommand(const Options& options, const std::wstring& image, const std::wstring& name)
{
    Session session(options, "driver remove");
    const std::wstring root = FullPath(image);
    session.Out().Progress("Removing " + detail::Utf8(name));
    const CallResult call = session.Call<decltype(RemoveDriver), decltype(RemoveDriverW)>(
        "RemoveDriver", root.c_str(), name.c_str(), session.LogFile().c_str());
    return session.Finish(call, session.OutcomeOf(call), "Removed " + detail::Utf8(name));
}

int DriverListCommand(const Options& options, const std::wstring& image)
{
    Session session(options, "driver list");
    const std::wstring root = FullPath(image);
    // The packages arrive as log lines; they are the result here and no progress.
    const CallResult call = session.Call<decltype(GetDrivers), decltype(GetDriversW)>(
        "GetDrivers", root.c_str(), session.LogFile().c_str());
    const std::vector<Listed> packages = PackagesIn(call.report);
    json list = json::array();
    for (const Listed& package : packages) {
        list.push_back(
            {{"published_name", package.published}, {"original_file", package.original}});
        std::string line = package.published;
        line.resize(std::max<std::size_t>(line.size() + 2, 16), ' ');
        session.Out().Line(line + package.original);
    }
    return session.Finish(call, session.OutcomeOf(call),
                          std::to_string(packages.size()) + " third-party packages",
                          {{"packages", list}});
}

int DriverInfoCommand(const Options& options, const std::wstring& image, const std::wstring& driver)
{
    Session session(options, "driver info");
    const std::wstring root = FullPath(image);
    const CallResult call = session.Call<decltype(GetDriverInfo), decltype(GetDriverInfoW)>(
        "GetDriverInfo", root.c_str(), driver.c_str(), session.LogFile().c_str());

    // A failed query is told on the console alone; the W form's value does not tell it from success.
    constexpr std::string_view failed = "DismGetDriverInfo Failed: ";
    Outcome outcome;
    outcome.returned = call.returned;
    outcome.report = call.report;
    const std::size_t query = call.console.find(failed);
    if (query != std::string::npos)
        outcome.failure = {"DismGetDriverInfo",
                           static_cast<std::int32_t>(std::strtoul(
                               call.console.c_str() + query + failed.size(), nullptr, 16))};
    else if (!call.report.failures.empty())
        outcome.failure = call.report.failures.front();
    outcome.succeeded = !outcome.failure;
    return session.Finish(call, outcome, "The image knows " + detail::Utf8(driver));
}

} // namespace kestro::host
