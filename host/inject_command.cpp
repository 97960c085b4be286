// inject_command.cpp - driver packages into the images of a file, in one command.
#include "direct_command.h"
#include "image_choice.h"
#include "inf_search.h"
#include "inject.h"
#include "interrupt.h"
#include "paths.h"
#include "usage_error.h"

#include <filesystem>

namespace kestro::host {
namespace fs = std::filesystem;

namespace {

using nlohmann::json;
using State = Injected::State;

// A new, empty directory to mount into. Its end removes it when nothing is in it any more.
class MountFolder {
  public:
    explicit MountFolder(const std::wstring& scratch)
    {
        const fs::path parent = scratch.empty() ? fs::temp_directory_path() : fs::path(scratch);
        const std::wstring start = L"kestro-" + std::to_wstring(GetCurrentProcessId()) + L"-";
        std::error_code error;
        for (int number = 1; number < 10000; ++number) {
            path_ = parent / (start + std::to_wstring(number));
            if (fs::create_directory(path_, error))
                return;
            if (error)
                break;
        }
        throw UsageError("no directory to mount into can be made in " + Shown(parent.wstring()));
    }
    ~MountFolder() { RemoveDirectoryW(path_.c_str()); }
    MountFolder(const MountFolder&) = delete;
    MountFolder& operator=(const MountFolder&) = delete;

    std::wstring Path() const { return path_.wstring(); }

  private:
    fs::path path_;
};

std::string Title(const ImageDetails& image)
{
    return "image " + std::to_string(image.index) + (image.name.empty() ? "" : ", " + image.name);
}

void Show(const Output& out, const InjectedImage& result, bool dryRun)
{
    for (const Injected& package : result.packages) {
        std::string state = NameOf(package.state);
        if (dryRun && package.state == State::Added)
            state = "would add";
        state.resize(15, ' ');
        out.Line("  " + state + Shown(package.inf) +
                 (package.publishedName.empty() || dryRun ? "" : " as " + package.publishedName) +
                 (package.reason.empty() ? "" : ": " + package.reason));
    }
    if (!result.error.empty())
        out.Error(Title(result.image) + ": " + result.error);
}

json ToJson(const InjectedImage& result)
{
    json packages = json::array();
    for (const Injected& package : result.packages)
        packages.push_back({{"inf", Shown(package.inf)},
                            {"state", NameOf(package.state)},
                            {"published_name", package.publishedName},
                            {"reason", package.reason},
                            {"code", package.code ? CodeToJson(*package.code) : json()}});
    return {{"index", result.image.index},
            {"name", result.image.name},
            {"saved", result.saved},
            {"error", result.error},
            {"packages", packages}};
}

struct Totals {
    explicit Totals(const std::vector<InjectedImage>& results)
    {
        for (const InjectedImage& result : results) {
            added += result.Count(State::Added);
            there += result.Count(State::AlreadyThere);
            skipped += result.Count(State::Skipped);
            failed += result.Count(State::Failed);
            unknown += result.Count(State::Unknown);
            notTried += result.Count(State::NotTried);
            broken += !result.error.empty();
        }
    }
    // Packages that do not fit are no failure, but a run in which none did is.
    bool Succeeded() const
    {
        return failed + unknown + notTried + broken == 0 && added + there != 0;
    }
    json Document() const
    {
        return {{"added", added},   {"already_there", there}, {"skipped", skipped},
                {"failed", failed}, {"unknown", unknown},     {"not_tried", notTried}};
    }
    std::string Line(std::size_t images, bool dryRun) const
    {
        std::string line = std::to_string(images) + (images == 1 ? " image: " : " images: ") +
                           std::to_string(added) + (dryRun ? " would be added, " : " added, ") +
                           std::to_string(there) + " already there, " + std::to_string(skipped) +
                           " skipped, " + std::to_string(failed) + " failed";
        if (unknown != 0)
            line += ", " + std::to_string(unknown) + " unknown";
        if (notTried != 0)
            line += ", " + std::to_string(notTried) + " not tried";
        return line;
    }

    std::size_t added = 0, there = 0, skipped = 0, failed = 0, unknown = 0, notTried = 0,
                broken = 0;
};

int Conclude(const Context& context, json document, const std::vector<InjectedImage>& results,
             std::size_t chosen, bool dryRun)
{
    const Totals totals(results);
    const bool interrupted = Interrupted();
    const bool succeeded = totals.Succeeded() && results.size() == chosen;
    document["succeeded"] = succeeded;
    document["interrupted"] = interrupted;
    document["summary"] = totals.Document();
    for (const InjectedImage& result : results)
        document["images"].push_back(ToJson(result));
    if (context.out->Json())
        context.out->Document(document);
    context.out->Line(totals.Line(results.size(), dryRun));
    if (succeeded)
        return kExitSuccess;
    if (interrupted) {
        context.out->Error("interrupted; " + std::to_string(chosen - results.size()) +
                           " images were not looked at, and what was saved before stays");
        return kExitInterrupted;
    }
    if (totals.failed + totals.unknown + totals.notTried + totals.broken == 0)
        context.out->Error("no package fits any image");
    return kExitFailed;
}

// What is wrong before anything has begun is an error of the arguments; afterwards it is this image's.
InjectedImage IntoImage(const Context& context, Session& session, const std::wstring& file,
                        const ImageDetails& image, const std::vector<std::wstring>& infs,
                        const InjectFlags& flags, bool isFirst)
{
    try {
        const MountFolder folder(flags.scratch.empty() ? std::wstring() : FullPath(flags.scratch));
        return Injection(context, session, file, folder.Path(), flags.dryRun).Into(image, infs);
    } catch (const UsageError& error) {
        if (isFirst)
            throw;
        InjectedImage result;
        result.image = image;
        for (const std::wstring& inf : infs)
            result.packages.emplace_back().inf = inf;
        result.error = error.what();
        return result;
    }
}

} // namespace

int InjectCommand(const Context& context, const std::wstring& image,
                  const std::vector<std::wstring>& arguments, const InjectFlags& flags)
{
    const InterruptGuard guard;
    const std::vector<std::wstring> infs = FindInfs(arguments);
    const std::wstring file = FullPath(image);
    Session session(context, "inject");
    json document = {{"command", "inject"},
                     {"file", Shown(file)},
                     {"dry_run", flags.dryRun},
                     {"images", json::array()}};
    const auto images = ImagesOf(context, file, document);
    if (!images)
        return kExitFailed;
    const auto chosen = ChooseImages(file, *images, flags.index);
    const auto start = std::chrono::steady_clock::now();
    std::vector<InjectedImage> results;
    for (const ImageDetails& one : chosen) {
        if (Interrupted())
            break;
        context.out->Line(Shown(file) + ", " + Title(one));
        results.push_back(IntoImage(context, session, file, one, infs, flags, results.empty()));
        Show(*context.out, results.back(), flags.dryRun);
    }
    document["elapsed_ms"] = std::chrono::duration_cast<std::chrono::milliseconds>(
                                 std::chrono::steady_clock::now() - start)
                                 .count();
    return Conclude(context, document, results, chosen.size(), flags.dryRun);
}

} // namespace kestro::host
