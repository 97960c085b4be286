// driver_commands.cpp - an image's drivers: add and remove.
#include "inf_search.h"
#include "interrupt.h"
#include "session.h"

#include <algorithm>

namespace kestro::host {
namespace {

using nlohmann::json;

json PackageToJson(const std::wstring& inf, bool added, bool certain,
                   std::optional<std::int32_t> lastError)
{
    return {{"inf", Shown(inf)},
            {"added", certain ? json(added) : json()},
            {"last_error", certain && !added && lastError ? json(*lastError) : json()}};
}

int AddOne(Session& session, const std::wstring& image, const std::wstring& inf)
{
    session.Out().Progress("Adding " + Shown(inf));
    const ResultPath result = session.NextResult();
    const Outcome outcome = session.Kestro().AddDriver(image, inf, session.FilesWith(result));
    const json package = PackageToJson(inf, outcome.succeeded, outcome.certain, outcome.lastError);
    return session.Finish(outcome, "Added " + Shown(inf), {{"packages", json::array({package})}});
}

struct ListTotals {
    std::size_t done = 0, added = 0, unknown = 0, of = 0;
    json packages = json::array();
};

// Shows each package of one call once, however often it stood in the list.
void TellPackages(const Session& session, const DriverListOutcome& outcome, ListTotals& totals)
{
    for (const PackageOutcome& package : outcome.packages) {
        ++totals.done;
        totals.added += package.added;
        totals.unknown += !package.certain;
        const char* const what = package.added     ? "added  "
                                 : package.certain ? "failed "
                                                   : "unknown";
        session.Out().Line("  " + std::to_string(totals.done) + " of " + std::to_string(totals.of) +
                           "  " + what + "  " + Shown(package.inf));
        totals.packages.push_back(
            PackageToJson(package.inf, package.added, package.certain, package.lastError));
    }
    // The codes stand in the log, in the order of the failures.
    const auto& failures = outcome.report.failures;
    for (std::size_t i = 0; i < failures.size(); ++i)
        if (i == 0 || failures[i].hresult != failures[i - 1].hresult)
            session.Out().Failed(failures[i].function, failures[i].hresult);
}

int AddMany(Session& session, const std::wstring& image, const std::vector<std::wstring>& infs)
{
    ListTotals totals;
    totals.of = infs.size();
    json calls = json::array();
    const std::vector<DriverBatch> batches = Batches(infs);
    session.RequireNewResults(batches.size());
    for (const DriverBatch& batch : batches) {
        if (Interrupted())
            break;
        session.Out().Progress("Adding " + std::to_string(batch.Infs().size()) + " packages, " +
                               std::to_string(totals.done) + " of " + std::to_string(totals.of) +
                               " done");
        const ResultPath result = session.NextResult();
        const DriverListOutcome outcome =
            session.Kestro().AddDrivers(image, batch, session.FilesWith(result));
        if (!outcome.succeeded)
            return session.Finish(outcome, "", {{"packages", totals.packages}});
        TellPackages(session, outcome, totals);
        calls.push_back(session.Document(outcome));
    }
    if (session.Out().Json())
        session.Out().Document({{"command", "driver add"},
                                {"succeeded", totals.added == totals.of},
                                {"packages", totals.packages},
                                {"calls", calls}});
    session.Out().Line("Added " + std::to_string(totals.added) + " of " +
                       std::to_string(totals.of) + " packages");
    if (totals.unknown != 0)
        session.Out().Error("the result file does not tell what became of " +
                            std::to_string(totals.unknown) + " packages");
    if (totals.added == totals.of)
        return kExitSuccess;
    if (totals.done < totals.of)
        session.Out().Error("interrupted; " + std::to_string(totals.of - totals.done) +
                            " packages were not tried");
    return totals.done < totals.of ? kExitInterrupted : kExitFailed;
}

} // namespace

int DriverAddCommand(const Context& context, const std::wstring& image,
                     const std::vector<std::wstring>& arguments)
{
    const InterruptGuard guard;
    const std::vector<std::wstring> infs = FindInfs(arguments);
    Session session(context, "driver add");
    const std::wstring root = FullPath(image);
    return infs.size() == 1 ? AddOne(session, root, infs.front()) : AddMany(session, root, infs);
}

int DriverRemoveCommand(const Context& context, const std::wstring& image, const std::wstring& name)
{
    Session session(context, "driver remove");
    session.Out().Progress("Removing " + Shown(name));
    const ResultPath result = session.NextResult();
    return session.Finish(
        session.Kestro().RemoveDriver(FullPath(image), name, session.FilesWith(result)),
        "Removed " + Shown(name));
}

} // namespace kestro::host
