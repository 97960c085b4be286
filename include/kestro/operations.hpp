// operations.hpp - each operation of Kestro.dll as a typed call with one kind of outcome: the return senses
// of the narrow and the W form and the layouts of their ResultFiles are resolved.
#ifndef KESTRO_OPERATIONS_HPP
#define KESTRO_OPERATIONS_HPP

#include "../kestro.h"
#include "details.hpp"
#include "disk_service.hpp"
#include "library.hpp"
#include "report.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <optional>
#include <ranges>
#include <string>
#include <utility>
#include <vector>

#include <objbase.h>
#include <windows.h>

namespace kestro {

enum class Form { Narrow, Wide };

// --- outcomes -----------------------------------------------------------------------------------------

struct Outcome {
    bool succeeded = false;
    std::int32_t returned = 0; // the export's own value
    // Of a failed call: the function that failed first and its HRESULT; nothing when nobody tells. The
    // step is its section in the ResultFile, empty without one.
    std::optional<Failure> failure;
    std::string step;
    std::optional<std::int32_t> lastError; // the step's ErrorCode
    Report report;
    std::chrono::milliseconds elapsed{};
};

struct PackageOutcome {
    std::wstring inf;
    bool added = false;
    std::int32_t lastError = 0; // of a package that was not added
};

// One call of AddDriverList. It succeeds when the session did, whatever became of the packages.
struct DriverListOutcome : Outcome {
    std::vector<PackageOutcome> packages;
};

struct ListedPackage {
    std::string publishedName, originalFileName;
};

struct DriverListing : Outcome {
    std::vector<ListedPackage> packages;
};

// The session stays open for as long as this lives; no other servicing call works properly before.
struct DriverDetails : Outcome {
    std::optional<PackageDetails> package;
    std::vector<DeviceDetails> devices;
    DetailsSession session;
};

struct DiskOutcome : Outcome {
    bool found = true;
};

struct InstallOutcome {
    bool succeeded = false;
    DWORD lastError = 0; // of a failed one
};

// --- a driver list of any length ------------------------------------------------------------------------

constexpr std::size_t kDriverListLength = 8;

// What one call of AddDriverList is about, at most eight packages. A list that is short of eight is filled
// with its own last path: a null entry would erase the report, and another path would be reported twice.
class DriverBatch {
  public:
    void Add(std::wstring inf) { infs_.push_back(std::move(inf)); }
    const std::vector<std::wstring>& Infs() const { return infs_; }
    bool Full() const { return infs_.size() == kDriverListLength; }

    std::array<const wchar_t*, kDriverListLength> Entries() const
    {
        std::array<const wchar_t*, kDriverListLength> entries{};
        for (std::size_t i = 0; i < kDriverListLength; ++i)
            entries[i] = infs_[(std::min)(i, infs_.size() - 1)].c_str();
        return entries;
    }

  private:
    std::vector<std::wstring> infs_;
};

template <std::ranges::input_range Paths>
std::vector<DriverBatch> Batches(Paths&& infs)
{
    std::vector<DriverBatch> batches;
    for (auto&& inf : infs) {
        if (batches.empty() || batches.back().Full())
            batches.emplace_back();
        batches.back().Add(std::wstring(std::forward<decltype(inf)>(inf)));
    }
    return batches;
}

namespace detail {

// The ResultFile's section of a servicing function.
inline std::string SectionOf(std::string_view function)
{
    for (const auto& [name, section] :
         {std::pair<std::string_view, const char*>{"DismMountImage", "DISM_MOUNT"},
          {"DismUnmountImage", "DISM_UNMOUNT"}})
        if (function == name)
            return section;
    std::string section =
        "DISM_" + std::string(function.substr(
                      (std::min<std::size_t>)(function.size(), std::string_view("Dism").size())));
    for (char& c : section)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    return section;
}

inline void SetFailure(Outcome& outcome, const Failure& failure)
{
    outcome.failure = failure;
    if (const Step* const step = outcome.report.Find(SectionOf(failure.function))) {
        outcome.step = step->name;
        outcome.lastError = step->error;
    }
}

// "Driver Package 0 - PublishedName: oem0.inf - Original file name: ..."
inline std::vector<ListedPackage> ListedIn(const Report& report)
{
    constexpr std::string_view start = "Driver Package ", published = " - PublishedName: ",
                               original = " - Original file name: ";
    std::vector<ListedPackage> packages;
    for (const LogLine& line : report.log) {
        const std::string& text = line.text;
        const std::size_t name = text.find(published), file = text.find(original);
        if (text.starts_with(start) && name != std::string::npos && file != std::string::npos)
            packages.push_back(
                {text.substr(name + published.size(), file - name - published.size()),
                 text.substr(file + original.size())});
    }
    return packages;
}

inline std::string Narrow(const std::wstring& text, bool* lossy = nullptr)
{
    BOOL replaced = FALSE;
    const int length = static_cast<int>(text.size());
    const int size =
        WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_ACP, 0, text.data(), length, narrow.data(), size, nullptr, nullptr);
    if (lossy != nullptr) {
        WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text.data(), length, narrow.data(), size,
                            nullptr, &replaced);
        *lossy = replaced != FALSE;
    }
    return narrow;
}

// What the ResultFile says of each package: its path is the key, in the ANSI code page.
inline std::vector<PackageOutcome> PackagesOf(const DriverBatch& batch, const Report& report)
{
    const Step* const errors = report.Find("DISM_ADDDRIVER_ERRORS");
    std::vector<PackageOutcome> packages;
    for (const std::wstring& inf : batch.Infs()) {
        PackageOutcome package{inf, true, 0};
        const std::string utf8 = Utf8(Wide(Narrow(inf), CP_ACP));
        // A profile file ends a key at its first equals sign.
        const std::string_view key = Trim(std::string_view(utf8).substr(0, utf8.find('=')));
        if (errors != nullptr)
            for (const auto& [name, value] : errors->other)
                if (EqualNames(name, key)) {
                    package.added = false;
                    package.lastError = Number(value).value_or(0);
                }
        packages.push_back(std::move(package));
    }
    return packages;
}

// The number in the line after the last one that starts with the label.
inline std::optional<std::int32_t> LastNumberAfter(const Report& report, std::string_view label)
{
    for (std::size_t i = report.log.size(); i-- > 1;)
        if (report.log[i - 1].text.starts_with(label))
            return Number(report.log[i].text);
    return {};
}

// COM for one disk call. The calls that run to their common exit consume an initialisation; the others
// leave it, and it is taken back here.
class ComForOneCall {
  public:
    ComForOneCall() : initialised_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~ComForOneCall()
    {
        if (initialised_)
            CoUninitialize();
    }
    ComForOneCall(const ComForOneCall&) = delete;
    ComForOneCall& operator=(const ComForOneCall&) = delete;

    void Consumed() { initialised_ = false; }

  private:
    bool initialised_;
};

} // namespace detail

// Resolves the return senses of the image and driver functions, except for the details.
inline Outcome OutcomeOf(Form form, std::uint8_t returned, Report report)
{
    Outcome outcome;
    outcome.returned = returned;
    bool stepFailed = false;
    for (const Step& step : report.steps)
        stepFailed = stepFailed || step.succeeded == false;
    // A narrow 1 also says that everything succeeded and the closing shutdown returned a success code
    // other than S_OK; then no step failed.
    outcome.succeeded = form == Form::Wide ? returned == 1 : returned == 0 || !stepFailed;
    outcome.report = std::move(report);
    if (outcome.succeeded)
        return outcome;

    // The packages of a list fail without failing the call, and have no Result of their own.
    const Step* const add = outcome.report.Find("DISM_ADDDRIVER");
    const bool single = add != nullptr && add->succeeded == false;
    const auto& failures = outcome.report.failures;
    const auto first = std::find_if(failures.begin(), failures.end(), [&](const Failure& failure) {
        return single || failure.function != "DismAddDriver";
    });
    if (first != failures.end())
        detail::SetFailure(outcome, Failure(*first));
    return outcome;
}

// --- operations -----------------------------------------------------------------------------------------

// Where a call writes: the servicing API's own log, and the ResultFile, best a new one for every call. Full
// paths.
struct Files {
    std::wstring log;
    std::wstring result;
};

// Runs the call that it is given; a host that wants to follow the ResultFile meanwhile, or to run calls on
// another thread, brings its own.
using Runner = std::function<void(const std::function<void()>& call, const std::wstring& result)>;

// The operations of one loaded library in one form. Calls block, and those on images and drivers must not
// overlap in a process.
class Operations {
  public:
    explicit Operations(const Library& library, Form form = Form::Wide, Runner runner = {})
        : library_(&library), form_(form), runner_(std::move(runner))
    {
    }

    Form GetForm() const { return form_; }

    // Mounts the first image of the file into an existing, empty directory, read-write.
    Outcome Mount(const std::wstring& image, const std::wstring& directory,
                  const Files& files) const
    {
        return Serviced<decltype(MountWimImage), decltype(MountWimImageW)>(
            "MountWimImage", files, image.c_str(), directory.c_str(), files.log.c_str());
    }
    Outcome Unmount(const std::wstring& directory, bool saveChanges, const Files& files) const
    {
        const std::uint32_t flags = saveChanges ? 0 : 1;
        return Serviced<decltype(UnmountWimImage), decltype(UnmountWimImageW)>(
            "UnmountWimImage", files, directory.c_str(), flags, files.log.c_str());
    }

    Outcome AddDriver(const std::wstring& image, const std::wstring& inf, const Files& files) const
    {
        return Serviced<decltype(::AddDriver), decltype(AddDriverW)>(
            "AddDriver", files, image.c_str(), inf.c_str(), files.log.c_str());
    }
    Outcome RemoveDriver(const std::wstring& image, const std::wstring& publishedName,
                         const Files& files) const
    {
        return Serviced<decltype(::RemoveDriver), decltype(RemoveDriverW)>(
            "RemoveDriver", files, image.c_str(), publishedName.c_str(), files.log.c_str());
    }
    DriverListOutcome AddDrivers(const std::wstring& image, const DriverBatch& batch,
                                 const Files& files) const
    {
        const auto entries = batch.Entries();
        DriverListOutcome outcome{
            Serviced<decltype(AddDriverList), decltype(AddDriverListW)>(
                "AddDriverList", files, image.c_str(), entries.data(), files.log.c_str()),
            {}};
        if (outcome.succeeded)
            outcome.packages = detail::PackagesOf(batch, outcome.report);
        return outcome;
    }
    // Any number of packages, in as many calls as that takes. Each call gets a ResultFile of its own from
    // `resultOf`, counted from 0. Ends with the first call that fails.
    template <std::ranges::input_range Paths>
    std::vector<DriverListOutcome>
    AddDrivers(const std::wstring& image, Paths&& infs, const std::wstring& log,
               const std::function<std::wstring(std::size_t call)>& resultOf) const
    {
        std::vector<DriverListOutcome> outcomes;
        for (const DriverBatch& batch : Batches(std::forward<Paths>(infs))) {
            outcomes.push_back(AddDrivers(image, batch, Files{log, resultOf(outcomes.size())}));
            if (!outcomes.back().succeeded)
                break;
        }
        return outcomes;
    }

    DriverListing GetDrivers(const std::wstring& image, const Files& files) const
    {
        DriverListing listing{Serviced<decltype(::GetDrivers), decltype(GetDriversW)>(
                                  "GetDrivers", files, image.c_str(), files.log.c_str()),
                              {}};
        listing.packages = detail::ListedIn(listing.report);
        return listing;
    }
    // A published name or the path of an INF.
    DriverDetails GetDriverInfo(const std::wstring& image, const std::wstring& driver,
                                const Files& files) const
    {
        detail::QueryWatch watch(library_->Module());
        DriverDetails details;
        static_cast<Outcome&>(details) =
            Serviced<decltype(::GetDriverInfo), decltype(GetDriverInfoW)>(
                "GetDriverInfo", files, image.c_str(), driver.c_str(), files.log.c_str());
        details.succeeded = watch.queried && SUCCEEDED(watch.result);
        details.failure.reset();
        if (!details.succeeded) {
            if (watch.queried)
                details.failure = Failure{"DismGetDriverInfo", watch.result};
            else if (!details.report.failures.empty())
                detail::SetFailure(details, Failure(details.report.failures.front()));
            return details;
        }
        details.session = DetailsSession(watch.session, watch.devices, watch.package);
        if (watch.package != nullptr)
            details.package = detail::DetailsOf(*watch.package);
        for (UINT i = 0; i < watch.count; ++i)
            details.devices.push_back(detail::DetailsOf(watch.devices[i]));
        return details;
    }

    struct CleanOptions {
        bool force = false;    // also a disk with data volumes
        bool forceOem = false; // also a disk with an OEM partition
        bool full = false;     // overwrite every sector
    };
    // The disk functions are called when the disk service is ready. A clean succeeded when the disk shows it.
    // CleanDisk has no W form: the ResultFile's path must fit the ANSI code page.
    DiskOutcome CleanDisk(const std::wstring& disk, const CleanOptions& options,
                          const std::wstring& result) const
    {
        auto* const clean = library_->Get<decltype(::CleanDisk)>("CleanDisk");
        const std::string file = detail::Narrow(result);
        if (const auto failure = AwaitDiskService())
            return WithoutService(*failure);
        DiskOutcome outcome{Run(result,
                                [&] {
                                    detail::ComForOneCall com;
                                    const std::int32_t returned =
                                        clean(disk.c_str(), options.force, options.forceOem,
                                              options.full, file.c_str());
                                    if (ConsumedCom(returned, ReadResultFile(result)))
                                        com.Consumed();
                                    return returned;
                                }),
                            true};
        // 0 says failed as well as not found; a search that came to its end leaves S_FALSE behind.
        const auto last = detail::LastNumberAfter(outcome.report, "Last HRESULT:");
        outcome.succeeded = outcome.returned == 1;
        outcome.found = outcome.succeeded || outcome.returned < 0 || last != S_FALSE;
        if (!outcome.succeeded && outcome.found) {
            std::int32_t code = outcome.returned < 0 ? outcome.returned : last.value_or(0);
            if (code >= 0)
                code = detail::LastNumberAfter(outcome.report, "CoCreateInstance HRESULT:")
                           .value_or(E_FAIL);
            outcome.failure = Failure{"CleanDisk", code};
        }
        if (outcome.succeeded) {
            outcome.failure = last == kDiskPartiallyCleaned
                                  ? Failure{"CleanDisk", kDiskPartiallyCleaned}
                                  : CheckCleaned(disk);
            outcome.succeeded = !outcome.failure;
        }
        return outcome;
    }
    DiskOutcome OnlineDisk(const std::wstring& disk) const
    {
        return ChangeDisk<decltype(::OnlineDisk)>("OnlineDisk", disk);
    }
    DiskOutcome OfflineDisk(const std::wstring& disk) const
    {
        return ChangeDisk<decltype(::OfflineDisk)>("OfflineDisk", disk);
    }

    InstallOutcome InfInstall(const std::wstring& inf) const
    {
        auto* const install = library_->Get<decltype(::InfInstall)>("InfInstall");
        InstallOutcome outcome;
        Run(L"", [&] {
            SetLastError(ERROR_SUCCESS);
            outcome.succeeded = install(inf.c_str()) == 1;
            outcome.lastError = outcome.succeeded ? ERROR_SUCCESS : GetLastError();
            return 0;
        });
        return outcome;
    }
    // Empty handles tell their reason through GetLastError().
    Handle OpenVdFile(const std::wstring& path) const
    {
        return Handle(library_->Get<decltype(::OpenVdFile)>("OpenVdFile")(path.c_str()));
    }
    Handle OpenPhDrive(const std::wstring& path) const
    {
        return Handle(library_->Get<decltype(::OpenPhDrive)>("OpenPhDrive")(path.c_str()));
    }

    // Succeeds when this host reads what the library writes.
    Outcome WriteTest(const std::wstring& result) const
    {
        Outcome outcome = Run(result, [&] {
            if (form_ == Form::Wide)
                library_->Get<decltype(WriteTestW)>("WriteTestW")(result.c_str());
            else
                library_->Get<decltype(::WriteTest)>("WriteTest")(detail::Narrow(result).c_str());
            return 0;
        });
        const Step* const test = outcome.report.Find("KESTRO_TEST");
        const auto& log = outcome.report.log;
        outcome.succeeded = test != nullptr && test->other.size() == 1 &&
                            test->other[0].second == "TEST" && log.size() == 1 &&
                            log[0].number == 2 &&
                            log[0].text == "This is a test created by Kestro.dll" &&
                            outcome.report.lastWrite.size() == 14;
        return outcome;
    }

  private:
    // Only the common exit does, and says so in the log. Without a log one initialisation too many is
    // the lesser evil.
    static bool ConsumedCom(std::int32_t returned, const std::optional<Report>& report)
    {
        return returned >= 0 &&
               (!report || detail::LastNumberAfter(*report, "Last HRESULT:").has_value());
    }

    Outcome Run(const std::wstring& result, const std::function<std::int32_t()>& call) const
    {
        Outcome outcome;
        const auto start = std::chrono::steady_clock::now();
        const auto make = [&] { outcome.returned = call(); };
        if (runner_)
            runner_(make, result);
        else
            make();
        outcome.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
        if (!result.empty())
            if (auto report = ReadResultFile(result))
                outcome.report = std::move(*report);
        return outcome;
    }

    // Calls the form of a function; its ResultFile is the last argument.
    template <class NarrowFunction, class WideFunction, class... Arguments>
    Outcome Serviced(const char* name, const Files& files, Arguments... arguments) const
    {
        Outcome ran = Run(files.result, [&]() -> std::int32_t {
            if (form_ == Form::Wide)
                return library_->Get<WideFunction>((std::string(name) + "W").c_str())(
                    arguments..., files.result.c_str());
            return library_->Get<NarrowFunction>(name)(arguments...,
                                                       detail::Narrow(files.result).c_str());
        });
        Outcome outcome =
            OutcomeOf(form_, static_cast<std::uint8_t>(ran.returned), std::move(ran.report));
        outcome.elapsed = ran.elapsed;
        return outcome;
    }

    static DiskOutcome WithoutService(const Failure& failure)
    {
        DiskOutcome outcome;
        outcome.failure = failure;
        return outcome;
    }

    template <class Function>
    DiskOutcome ChangeDisk(const char* name, const std::wstring& disk) const
    {
        auto* const change = library_->Get<Function>(name);
        if (const auto failure = AwaitDiskService())
            return WithoutService(*failure);
        DiskOutcome outcome{Run(L"",
                                [&] {
                                    detail::ComForOneCall com;
                                    const std::int32_t returned = change(disk.c_str());
                                    if (returned >= 0)
                                        com.Consumed();
                                    return returned;
                                }),
                            true};
        // 1 is the search's last code: nothing found.
        outcome.found = outcome.returned != S_FALSE;
        outcome.succeeded = outcome.returned >= 0 && outcome.found;
        if (outcome.returned < 0)
            outcome.failure = Failure{name, outcome.returned};
        return outcome;
    }

    const Library* library_;
    Form form_;
    Runner runner_;
};

} // namespace kestro

#endif
