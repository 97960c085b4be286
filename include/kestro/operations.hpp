// operations.hpp - each operation of Kestro.dll as a typed call with one kind of outcome, in either form.
#ifndef KESTRO_OPERATIONS_HPP
#define KESTRO_OPERATIONS_HPP

#include "../kestro.h"
#include "disk_service.hpp"
#include "disks.hpp"
#include "library.hpp"
#include "outcome.hpp"
#include "packages.hpp"
#include "report.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <windows.h>

namespace kestro {

struct InstallOutcome {
    bool succeeded = false;
    DWORD lastError = 0; // of a failed one
};

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
            "MountWimImage", "DISM_MOUNT", files, image.c_str(), directory.c_str(),
            files.log.c_str());
    }
    Outcome Unmount(const std::wstring& directory, bool saveChanges, const Files& files) const
    {
        const std::uint32_t flags = saveChanges ? 0 : 1;
        return Serviced<decltype(UnmountWimImage), decltype(UnmountWimImageW)>(
            "UnmountWimImage", kShutdown, files, directory.c_str(), flags, files.log.c_str());
    }

    Outcome AddDriver(const std::wstring& image, const std::wstring& inf, const Files& files) const
    {
        return Serviced<decltype(::AddDriver), decltype(AddDriverW)>(
            "AddDriver", kShutdown, files, image.c_str(), inf.c_str(), files.log.c_str());
    }
    Outcome RemoveDriver(const std::wstring& image, const std::wstring& publishedName,
                         const Files& files) const
    {
        return Serviced<decltype(::RemoveDriver), decltype(RemoveDriverW)>(
            "RemoveDriver", kShutdown, files, image.c_str(), publishedName.c_str(),
            files.log.c_str());
    }
    DriverListOutcome AddDrivers(const std::wstring& image, const DriverBatch& batch,
                                 const Files& files) const
    {
        const auto entries = batch.Entries();
        DriverListOutcome outcome{Serviced<decltype(AddDriverList), decltype(AddDriverListW)>(
                                      "AddDriverList", kShutdown, files, image.c_str(),
                                      entries.data(), files.log.c_str()),
                                  {}};
        if (outcome.succeeded)
            outcome.packages = detail::PackagesOf(form_, batch, outcome.report);
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
                                  "GetDrivers", kShutdown, files, image.c_str(), files.log.c_str()),
                              {}};
        listing.packages = detail::ListedIn(listing.report);
        // The list is in the report alone; this step is written behind it.
        const Step* const listed = listing.report.Find("DISM_GETDRIVERS");
        if (listing.succeeded && (listed == nullptr || listed->succeeded != true))
            listing.succeeded = listing.certain = false;
        return listing;
    }
    // A published name or the path of an INF. After a success the session stays open and the API initialised:
    // see kestro.h. For what is known of the package ask the servicing API itself (servicing.hpp).
    Outcome GetDriverInfo(const std::wstring& image, const std::wstring& driver,
                          const Files& files) const
    {
        return CallForms<decltype(::GetDriverInfo), decltype(GetDriverInfoW)>(
            "GetDriverInfo", DetailsOutcomeOf, files, image.c_str(), driver.c_str(),
            files.log.c_str());
    }

    using CleanOptions = kestro::CleanOptions;
    // The disk functions are called when the disk service is ready. A clean succeeded when the disk shows it.
    // CleanDisk has no W form: the ResultFile's path must fit the ANSI code page.
    DiskOutcome CleanDisk(const std::wstring& disk, const CleanOptions& options,
                          const std::wstring& result) const
    {
        auto* const clean = library_->Get<decltype(::CleanDisk)>("CleanDisk");
        DiskOutcome outcome;
        std::string file;
        if (!FitsAnsi("CleanDisk", result, file, outcome))
            return outcome;
        const detail::vds::ServiceWatch watch;
        outcome.failure = watch.Refusal();
        if (outcome.failure)
            return outcome;
        static_cast<Outcome&>(outcome) = Run(result, [&] {
            return detail::CallWithComOfItsOwn([&] {
                return clean(disk.c_str(), options.force, options.forceOem, options.full,
                             file.c_str());
            });
        });
        detail::SetCleanOutcome(outcome);
        if (outcome.succeeded) {
            const auto last = detail::LastNumberAfter(outcome.report, "Last HRESULT:");
            if (last == kDiskPartiallyCleaned)
                outcome.failure = Failure{"CleanDisk", kDiskPartiallyCleaned};
            else if (options.full && !last) // the disk does not show whether all of it was written
                outcome.failure = Failure{"CleanDisk", HRESULT_FROM_WIN32(ERROR_READ_FAULT)};
            else if (auto lost = watch.Lost())
                outcome.failure = std::move(lost);
            else
                outcome.failure = CheckCleaned(disk);
            outcome.succeeded = !outcome.failure;
            // The service could not be asked.
            outcome.certain = outcome.succeeded ||
                              outcome.failure->hresult == kDiskPartiallyCleaned ||
                              outcome.failure->hresult == kDiskNotEmpty;
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
        Outcome outcome;
        std::string file;
        if (form_ == Form::Narrow && !FitsAnsi("WriteTest", result, file, outcome))
            return outcome;
        outcome = Run(result, [&] {
            if (form_ == Form::Wide)
                library_->Get<decltype(WriteTestW)>("WriteTestW")(result.c_str());
            else
                library_->Get<decltype(::WriteTest)>("WriteTest")(file.c_str());
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
    static constexpr std::string_view kShutdown = "DISM_SHUTDOWN";

    // A narrow path as the library takes it. One that the code page cannot hold would name another file, so
    // the call is not made.
    static bool FitsAnsi(const char* function, const std::wstring& path, std::string& narrow,
                         Outcome& outcome)
    {
        bool lossy = false;
        narrow = detail::Narrow(path, &lossy);
        if (lossy) {
            outcome.returned = 1;
            outcome.failure = Failure{function, HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION)};
        }
        return !lossy;
    }

    Outcome Run(const std::wstring& result, const std::function<std::int32_t()>& call) const
    {
        Outcome outcome;
        const auto written = detail::LastWriteOf(result);
        const auto start = std::chrono::steady_clock::now();
        const auto make = [&] { outcome.returned = call(); };
        if (runner_)
            runner_(make, result);
        else
            make();
        outcome.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
        // What an earlier call has left there tells nothing of this one.
        if (!result.empty() && (!written || written != detail::LastWriteOf(result)))
            if (auto report = ReadResultFile(result)) {
                outcome.reported = true;
                outcome.report = std::move(*report);
            }
        return outcome;
    }

    // Calls the form of a function, whose ResultFile is the last argument, and resolves what it returned.
    template <class NarrowFunction, class WideFunction, class Resolve, class... Arguments>
    Outcome CallForms(const char* name, const Resolve& resolve, const Files& files,
                      Arguments... arguments) const
    {
        Outcome refused;
        std::string file;
        if (form_ == Form::Narrow && !FitsAnsi(name, files.result, file, refused))
            return refused;
        Outcome ran = Run(files.result, [&]() -> std::int32_t {
            if (form_ == Form::Wide)
                return library_->Get<WideFunction>((std::string(name) + "W").c_str())(
                    arguments..., files.result.c_str());
            return library_->Get<NarrowFunction>(name)(arguments..., file.c_str());
        });
        std::optional<Report> report;
        if (ran.reported)
            report = std::move(ran.report);
        Outcome outcome =
            resolve(form_, static_cast<std::uint8_t>(ran.returned), std::move(report));
        outcome.elapsed = ran.elapsed;
        return outcome;
    }

    template <class NarrowFunction, class WideFunction, class... Arguments>
    Outcome Serviced(const char* name, std::string_view lastStep, const Files& files,
                     Arguments... arguments) const
    {
        const auto resolve = [&](Form form, std::uint8_t returned, std::optional<Report> report) {
            return OutcomeOf(form, returned, std::move(report), lastStep);
        };
        return CallForms<NarrowFunction, WideFunction>(name, resolve, files, arguments...);
    }

    template <class Function>
    DiskOutcome ChangeDisk(const char* name, const std::wstring& disk) const
    {
        auto* const change = library_->Get<Function>(name);
        if (auto failure = AwaitDiskService()) {
            DiskOutcome outcome;
            outcome.failure = std::move(failure);
            return outcome;
        }
        DiskOutcome outcome{Run(L"", [&] {
            return detail::CallWithComOfItsOwn([&] { return change(disk.c_str()); });
        })};
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
