// driver_export_command.cpp - driver packages out of an image: each one's folder as its maker published it,
// from the image's driver store.
#include "direct_command.h"
#include "interrupt.h"
#include "live_clock.h"
#include "session.h"
#include "usage_error.h"

#include <algorithm>
#include <filesystem>
#include <map>

namespace kestro::host {
namespace fs = std::filesystem;

namespace {

using nlohmann::json;

struct Export {
    std::string publishedName;
    fs::path from, to; // folders
};

bool SameText(const std::wstring& left, const std::wstring& right)
{
    return _wcsicmp(left.c_str(), right.c_str()) == 0;
}

std::vector<PackageDetails> Wanted(const std::vector<PackageDetails>& packages,
                                   const std::vector<std::wstring>& names)
{
    std::vector<PackageDetails> wanted;
    for (const std::wstring& name : names) {
        const bool all = name == L"all";
        bool found = false;
        for (const PackageDetails& package : packages) {
            if (all ? package.inBox : !SameText(detail::Wide(package.publishedName, CP_UTF8), name))
                continue;
            found = true;
            if (std::none_of(wanted.begin(), wanted.end(), [&](const PackageDetails& other) {
                    return other.publishedName == package.publishedName;
                }))
                wanted.push_back(package);
        }
        if (!found)
            throw UsageError(all ? "the image has no third-party package"
                                 : "the image has no package " + Shown(name));
    }
    return wanted;
}

// A folder for each, named after the INF; after its published name too where several INFs have one name.
std::vector<Export> Plan(const std::vector<PackageDetails>& packages, const fs::path& directory)
{
    std::map<std::wstring, int> stems;
    const auto stemOf = [](const fs::path& inf) {
        std::wstring stem = inf.stem().wstring();
        std::transform(stem.begin(), stem.end(), stem.begin(), towlower);
        return stem;
    };
    std::vector<Export> exports;
    for (const PackageDetails& package : packages)
        ++stems[stemOf(detail::Wide(package.originalFileName, CP_UTF8))];
    for (const PackageDetails& package : packages) {
        const fs::path inf = detail::Wide(package.originalFileName, CP_UTF8);
        if (!SameText(inf.parent_path().parent_path().filename().wstring(), L"FileRepository"))
            throw UsageError(package.publishedName + " is not in the image's driver store");
        std::wstring name = stemOf(inf);
        if (stems[name] > 1)
            name += L"-" + fs::path(detail::Wide(package.publishedName, CP_UTF8)).stem().wstring();
        exports.push_back({package.publishedName, inf.parent_path(), directory / name});
        if (fs::exists(exports.back().to))
            throw UsageError(Shown(exports.back().to.wstring()) +
                             " exists already; nothing was exported");
    }
    return exports;
}

// What Windows makes of an INF for itself is not its maker's.
bool IsMakers(const fs::path& file)
{
    return !SameText(file.extension().wstring(), L".pnf");
}

// The folder appears as a whole.
void CopyPackage(const Export& package)
{
    const fs::path unfinished = package.to.wstring() + L".unfinished";
    fs::remove_all(unfinished);
    try {
        fs::create_directories(unfinished);
        for (const auto& entry : fs::recursive_directory_iterator(package.from)) {
            const fs::path to = unfinished / entry.path().lexically_relative(package.from);
            if (entry.is_directory())
                fs::create_directories(to);
            else if (IsMakers(entry.path()))
                fs::copy_file(entry.path(), to);
        }
        fs::rename(unfinished, package.to);
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(unfinished, ignored);
        throw;
    }
}

int CopyAll(const Context& context, const std::vector<Export>& exports, json& document)
{
    const InterruptGuard guard;
    const LiveClock clock(*context.out);
    std::size_t done = 0, tried = 0;
    for (const Export& package : exports) {
        if (Interrupted())
            break;
        context.out->SetPercent(tried++, exports.size());
        json entry = {{"published_name", package.publishedName},
                      {"folder", Shown(package.to.wstring())},
                      {"exported", false},
                      {"error", ""}};
        try {
            CopyPackage(package);
            entry["exported"] = true;
            ++done;
            context.out->Line("  " + package.publishedName + "  " + Shown(package.to.wstring()));
        } catch (const fs::filesystem_error& error) {
            entry["error"] = error.code().message();
            context.out->Error(package.publishedName +
                               " could not be exported: " + error.code().message());
        }
        document["packages"].push_back(entry);
    }
    context.out->Line("Exported " + std::to_string(done) + " of " + std::to_string(exports.size()) +
                      " packages");
    if (done == exports.size())
        return kExitSuccess;
    return Interrupted() ? kExitInterrupted : kExitFailed;
}

} // namespace

int DriverExportCommand(const Context& context, const std::wstring& image,
                        const std::vector<std::wstring>& names, const std::wstring& directory)
{
    const fs::path target = FullPath(directory);
    json document = {{"command", "driver export"},
                     {"directory", Shown(target.wstring())},
                     {"packages", json::array()}};
    std::vector<PackageDetails> packages;
    const auto failure = WithServicing(context, [&](const Servicing& servicing) {
        packages = ServicingSession(servicing, FullPath(image)).Packages(true);
    });
    int exitCode = kExitFailed;
    if (failure)
        document["failure"] = FailureToJson(*failure);
    else
        exitCode = CopyAll(context, Plan(Wanted(packages, names), target), document);
    document["succeeded"] = exitCode == kExitSuccess;
    if (context.out->Json())
        context.out->Document(document);
    return exitCode;
}

} // namespace kestro::host
