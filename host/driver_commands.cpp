// driver_commands.cpp - an image's drivers: add, remove, list, query.
#include "inf_search.h"
#include "session.h"

#include <algorithm>

namespace kestro::host {
namespace {

using nlohmann::json;

json PackageToJson(const std::wstring& inf, bool added, std::optional<std::int32_t> lastError)
{
    return {{"inf", detail::Utf8(inf)},
            {"added", added},
            {"last_error", !added && lastError ? json(*lastError) : json()}};
}

int AddOne(Session& session, const std::wstring& image, const std::wstring& inf)
{
    session.Out().Progress("Adding " + detail::Utf8(inf));
    const ResultPath result = session.NextResult();
    const Outcome outcome = session.Kestro().AddDriver(image, inf, session.FilesWith(result));
    const json package = PackageToJson(inf, outcome.succeeded, outcome.lastError);
    return session.Finish(outcome, "Added " + detail::Utf8(inf),
                          {{"packages", json::array({package})}});
}

struct ListTotals {
    std::size_t done = 0, failed = 0, of = 0;
    json packages = json::array();
};

// Shows each package of one call once, however often it stood in the list.
void TellPackages(const Session& session, const DriverListOutcome& outcome, ListTotals& totals)
{
    for (const PackageOutcome& package : outcome.packages) {
        ++totals.done;
        totals.failed += !package.added;
        session.Out().Line("  " + std::to_string(totals.done) + " of " + std::to_string(totals.of) +
                           "  " + (package.added ? "added  " : "failed ") + "  " +
                           detail::Utf8(package.inf));
        totals.packages.push_back(PackageToJson(package.inf, package.added, package.lastError));
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
    for (const DriverBatch& batch : Batches(infs)) {
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
                                {"succeeded", totals.failed == 0},
                                {"packages", totals.packages},
                                {"calls", calls}});
    session.Out().Line("Added " + std::to_string(totals.of - totals.failed) + " of " +
                       std::to_string(totals.of) + " packages");
    return totals.failed == 0 ? kExitSuccess : kExitFailed;
}

const char* NameOf(PackageDetails::Signature signature)
{
    switch (signature) {
    case PackageDetails::Signature::Signed:
        return "signed";
    case PackageDetails::Signature::Unsigned:
        return "unsigned";
    case PackageDetails::Signature::Unknown:
        break;
    }
    return "unknown";
}

json ToJson(const DriverDetails& details)
{
    json devices = json::array();
    for (const DeviceDetails& device : details.devices)
        devices.push_back({{"hardware_id", device.hardwareId},
                           {"description", device.description},
                           {"manufacturer", device.manufacturer},
                           {"service", device.service},
                           {"architecture", device.architecture}});
    json package;
    if (details.package) {
        const PackageDetails& known = *details.package;
        package = {{"published_name", known.publishedName},
                   {"original_file", known.originalFileName},
                   {"catalog", known.catalogFile},
                   {"class", known.className},
                   {"class_guid", known.classGuid},
                   {"provider", known.provider},
                   {"date", known.date},
                   {"version", known.version},
                   {"in_box", known.inBox},
                   {"boot_critical", known.bootCritical},
                   {"signature", NameOf(known.signature)}};
    }
    return {{"package", package}, {"devices", devices}};
}

void Show(const Output& out, const DriverDetails& details)
{
    const auto line = [&](const char* name, const std::string& value) {
        std::string text = std::string("  ") + name;
        text.resize(18, ' ');
        out.Line(text + value);
    };
    if (details.package) {
        const PackageDetails& package = *details.package;
        line("published name", package.publishedName.empty() ? "-" : package.publishedName);
        line("file", package.originalFileName);
        line("class", package.className + " " + package.classGuid);
        line("provider", package.provider);
        line("version", package.version + "  " + package.date);
        line("signature", NameOf(package.signature));
        line("boot critical", package.bootCritical ? "yes" : "no");
    }
    for (const DeviceDetails& device : details.devices)
        line("device", device.hardwareId + "  " + device.description);
}

} // namespace

int DriverAddCommand(const Context& context, const std::wstring& image,
                     const std::vector<std::wstring>& arguments)
{
    const std::vector<std::wstring> infs = FindInfs(arguments);
    Session session(context, "driver add");
    const std::wstring root = FullPath(image);
    return infs.size() == 1 ? AddOne(session, root, infs.front()) : AddMany(session, root, infs);
}

int DriverRemoveCommand(const Context& context, const std::wstring& image, const std::wstring& name)
{
    Session session(context, "driver remove");
    session.Out().Progress("Removing " + detail::Utf8(name));
    const ResultPath result = session.NextResult();
    return session.Finish(
        session.Kestro().RemoveDriver(FullPath(image), name, session.FilesWith(result)),
        "Removed " + detail::Utf8(name));
}

int DriverListCommand(const Context& context, const std::wstring& image)
{
    Session session(context, "driver list");
    const ResultPath result = session.NextResult();
    const DriverListing listing =
        session.Kestro().GetDrivers(FullPath(image), session.FilesWith(result));
    json list = json::array();
    for (const ListedPackage& package : listing.packages) {
        list.push_back({{"published_name", package.publishedName},
                        {"original_file", package.originalFileName}});
        std::string line = package.publishedName;
        line.resize(std::max<std::size_t>(line.size() + 2, 16), ' ');
        session.Out().Line(line + package.originalFileName);
    }
    return session.Finish(listing,
                          std::to_string(listing.packages.size()) + " third-party packages",
                          {{"packages", list}});
}

int DriverInfoCommand(const Context& context, const std::wstring& image, const std::wstring& driver)
{
    Session session(context, "driver info");
    // A published name stays as it is; anything with a directory is a path.
    const bool isPath = driver.find_first_of(L"\\/:") != std::wstring::npos;
    const ResultPath result = session.NextResult();
    const DriverDetails details = session.Kestro().GetDriverInfo(
        FullPath(image), isPath ? FullPath(driver) : driver, session.FilesWith(result));
    if (details.succeeded)
        Show(session.Out(), details);
    return session.Finish(details, "The image knows " + detail::Utf8(driver), ToJson(details));
}

} // namespace kestro::host
