// inject.cpp - driver packages into one image of a file.
#include "inject.h"

#include "direct_command.h"
#include "inf_fit.h"
#include "interrupt.h"
#include "paths.h"
#include "result_codes.h"

#include <algorithm>
#include <filesystem>
#include <set>

namespace kestro::host {
namespace fs = std::filesystem;

namespace {

using State = Injected::State;

std::string Text(const ServicingError& error)
{
    const CodeText text = Describe(error.Code());
    return error.Function() + " failed: " + text.hex +
           (text.message.empty() ? "" : ", " + text.message);
}

std::string Text(const Outcome& outcome)
{
    if (outcome.failure)
        return Text(ServicingError(outcome.failure->function, outcome.failure->hresult, ""));
    return outcome.certain ? "failed, and nothing says why"
                           : "the result file does not say what became of it";
}

std::wstring InfName(const std::wstring& path)
{
    std::wstring name = fs::path(path).filename().wstring();
    std::transform(name.begin(), name.end(), name.begin(), towlower);
    return name;
}

// The published names of the packages that were made from an INF of that name.
std::set<std::string> PublishedAs(const std::vector<PackageDetails>& packages,
                                  const std::wstring& inf)
{
    std::set<std::string> names;
    for (const PackageDetails& package : packages)
        if (InfName(detail::Wide(package.originalFileName, CP_UTF8)) == InfName(inf))
            names.insert(package.publishedName);
    return names;
}

// Added when the image has one more package of that INF's name than before; else it was there. One that the
// image does not show at all is neither.
void SetAdded(Injected& package, const std::vector<PackageDetails>& before,
              const std::vector<PackageDetails>& after)
{
    const auto old = PublishedAs(before, package.inf), now = PublishedAs(after, package.inf);
    package.state = now.empty() ? State::Unknown : State::AlreadyThere;
    if (now.empty())
        package.reason = "the image does not show it";
    for (const std::string& name : now)
        if (old.count(name) == 0) {
            package.state = State::Added;
            package.publishedName = name;
        }
}

// At most eight, no two with an INF of one name: what the image has afterwards tells them apart.
std::vector<std::vector<Injected*>> BatchesOf(std::vector<Injected>& packages)
{
    std::vector<std::vector<Injected*>> batches;
    for (Injected& package : packages) {
        const auto fits = [&](const std::vector<Injected*>& batch) {
            return batch.size() < kDriverListLength &&
                   std::none_of(batch.begin(), batch.end(), [&](const Injected* other) {
                       return InfName(other->inf) == InfName(package.inf);
                   });
        };
        auto batch = std::find_if(batches.begin(), batches.end(), fits);
        if (batch == batches.end())
            batch = batches.insert(batch, std::vector<Injected*>());
        batch->push_back(&package);
    }
    return batches;
}

} // namespace

const char* NameOf(Injected::State state)
{
    switch (state) {
    case State::Added:
        return "added";
    case State::AlreadyThere:
        return "already there";
    case State::Skipped:
        return "skipped";
    case State::Failed:
        return "failed";
    case State::Unknown:
        return "unknown";
    case State::NotTried:
        break;
    }
    return "not tried";
}

std::size_t InjectedImage::Count(Injected::State state) const
{
    return static_cast<std::size_t>(
        std::count_if(packages.begin(), packages.end(),
                      [&](const Injected& package) { return package.state == state; }));
}

InjectedImage Injection::Into(const ImageDetails& image, const std::vector<std::wstring>& infs)
{
    const InterruptGuard guard;
    InjectedImage result;
    result.image = image;
    for (const std::wstring& inf : infs) {
        result.packages.emplace_back();
        result.packages.back().inf = inf;
    }
    if (!Mount(result))
        return result;
    try {
        Work(result);
    } catch (const std::exception& error) {
        result.error = error.what();
    } catch (...) {
        result.error = "an unforeseen failure";
    }
    Unmount(result);
    return result;
}

void Injection::Work(InjectedImage& result)
{
    if (Interrupted())
        return;
    if (dryRun_)
        TryAll(result);
    else
        AddAll(result);
}

// MountWimImage takes the first image only.
bool Injection::Mount(InjectedImage& result)
{
    if (result.image.index != 1) {
        const auto failure = WithServicing(context_, [&](const Servicing& servicing) {
            servicing.Mount(file_, directory_, result.image.index, false,
                            context_.out->LiveWatch());
        });
        if (failure)
            result.error = Text(*failure);
        return !failure;
    }
    const ResultPath file = session_.NextResult();
    const Outcome mounted = session_.Kestro().Mount(file_, directory_, session_.FilesWith(file));
    if (mounted.succeeded)
        return true;
    result.error = Text(mounted);
    // One of which nobody knows may be mounted all the same.
    if (!mounted.certain)
        Drop();
    return false;
}

bool Injection::UnmountByLibrary(bool save, std::string& error)
{
    try {
        const ResultPath file = session_.NextResult();
        const Outcome outcome =
            session_.Kestro().Unmount(directory_, save, session_.FilesWith(file));
        if (!outcome.succeeded)
            error = Text(outcome);
        return outcome.succeeded;
    } catch (const std::exception& failure) {
        error = failure.what();
        return false;
    }
}

// By the servicing API itself, which needs no place for a report.
bool Injection::Drop()
{
    const auto failure = WithServicing(
        context_, [&](const Servicing& servicing) { servicing.Unmount(directory_, false); });
    constexpr std::int32_t notMounted[] = {static_cast<std::int32_t>(0xC142010B),
                                           static_cast<std::int32_t>(0xC0040007)};
    return !failure || std::find(std::begin(notMounted), std::end(notMounted), failure->Code()) !=
                           std::end(notMounted);
}

void Injection::Unmount(InjectedImage& result)
{
    const bool save = !dryRun_ && result.error.empty() && !Interrupted() &&
                      result.Count(State::Added) + result.Count(State::Unknown) != 0;
    std::string error;
    if (UnmountByLibrary(save, error)) {
        result.saved = result.saved || save;
        return;
    }
    if (result.error.empty())
        result.error = error;
    if (!Drop())
        result.error += "; the image is still mounted in " + Shown(directory_);
}

std::optional<std::vector<PackageDetails>> Injection::Listed(InjectedImage& result)
{
    std::vector<PackageDetails> packages;
    const auto failure = WithServicing(context_, [&](const Servicing& servicing) {
        packages = ServicingSession(servicing, directory_).Packages(false);
    });
    if (!failure)
        return packages;
    result.error = Text(*failure);
    return {};
}

void Injection::AddAll(InjectedImage& result)
{
    for (const auto& batch : BatchesOf(result.packages))
        if (Interrupted() || !AddBatch(result, batch))
            return;
}

bool Injection::AddBatch(InjectedImage& result, const std::vector<Injected*>& batch)
{
    const auto before = Listed(result);
    if (!before)
        return false;
    DriverBatch list;
    for (const Injected* package : batch)
        list.Add(package->inf);
    const ResultPath file = session_.NextResult();
    for (Injected* package : batch)
        package->state = State::Unknown; // until somebody tells
    const DriverListOutcome outcome =
        session_.Kestro().AddDrivers(directory_, list, session_.FilesWith(file));
    if (!outcome.succeeded) {
        result.error = Text(outcome);
        for (Injected* package : batch)
            package->state = outcome.certain ? State::Failed : State::Unknown;
        return false;
    }
    const auto after = Listed(result);
    for (std::size_t i = 0; i < batch.size(); ++i) {
        const PackageOutcome& told = outcome.packages[i];
        if (!told.certain || (told.added && !after))
            batch[i]->state = State::Unknown;
        else if (told.added)
            SetAdded(*batch[i], *before, *after);
        else
            Judge(*batch[i], told.hresult.value_or(E_FAIL), result.image);
    }
    // The list's own commit has saved them.
    result.saved = result.saved || result.Count(State::Added) != 0;
    return after.has_value();
}

// Everything is done as it would be, and dropped with the mount.
void Injection::TryAll(InjectedImage& result)
{
    const auto failure = WithServicing(context_, [&](const Servicing& servicing) {
        const ServicingSession session(servicing, directory_);
        auto before = session.Packages(false);
        std::size_t tried = 0;
        for (Injected& package : result.packages) {
            if (Interrupted())
                return;
            context_.out->SetPercent(tried++, result.packages.size());
            try {
                session.Add(package.inf);
                auto after = session.Packages(false);
                SetAdded(package, before, after);
                before = std::move(after);
            } catch (const ServicingError& error) {
                Judge(package, error.Code(), result.image);
            }
        }
    });
    if (failure)
        result.error = Text(*failure);
}

void Injection::Judge(Injected& package, std::int32_t code, const ImageDetails& image) const
{
    package.code = code;
    package.state = State::Skipped;
    switch (static_cast<std::uint32_t>(code)) {
    case 0x80070032:
        package.reason = WhyUnfit(package.inf, image.architecture);
        return;
    case 0x800B0100:
        package.reason = "unsigned";
        return;
    case 0x800F022F: // its catalog, or another file
        package.reason = HasCatalog(package.inf) ? "a file of it is missing" : "unsigned";
        return;
    case 0x800F0247: // whatever kept it out of the driver store
        if (HasCatalog(package.inf))
            break;
        package.reason = "unsigned";
        return;
    case 0x800F0242:
        package.reason = "unsigned: its signer is not trusted";
        return;
    case 0x800F0244:
        package.reason = "signed for another Windows version";
        return;
    case 0x80070002:
    case 0x80070003:
        package.reason = "a file of it is missing";
        return;
    default:
        break;
    }
    const CodeText text = Describe(code);
    package.state = State::Failed;
    package.reason = text.hex + (text.message.empty() ? "" : ", " + text.message);
}

} // namespace kestro::host
