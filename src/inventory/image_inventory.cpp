// image_inventory.cpp - the driver packages of a mounted image.
#include "inventory/image_inventory.h"

#include "base/ansi_name.h"
#include "image/servicing_session.h"
#include "report/console_trace.h"

#include <new>
#include <string>

#include <comdef.h>

namespace kestro::library {
namespace {

constexpr Step kGetDriversStep = {"DISM_GETDRIVERS",
                                  "DismGetDrivers Failed. Following error code."};

static_assert(sizeof(DismDriverPackage) == 100, "the platform packs its records by the byte");

void ListPackage(StepReporter& report, UINT index, const DismDriverPackage& package,
                 std::string& line)
{
    TracePrintW(L"Driver Package %u: %s\n", index, package.PublishedName);
    TracePrintW(L"Original file name: %s\n\n", package.OriginalFileName);

    const AnsiName publishedName(package.PublishedName);
    const AnsiName originalFileName(package.OriginalFileName);
    try {
        line.assign("Driver Package ");
        line.append(std::to_string(index));
        line.append(" - PublishedName: ");
        line.append(publishedName.TextOrEmpty());
        line.append(" - Original file name: ");
        line.append(originalFileName.TextOrEmpty());
    } catch (const std::bad_alloc&) {
        // A host meets one kind of exception, whichever copy of a name found no memory.
        _com_issue_error(E_OUTOFMEMORY);
    }
    report.LogLine(line.c_str());
}

void ListPackages(StepReporter& report, const DismDriverPackage* packages, UINT count)
{
    if (count == 0)
        report.LogLine("No third party drivers found inside the image.");

    // The heading follows even when there is nothing to list.
    TracePrintW(L"\n\nThese are the third party drivers from the image:\n\n");
    report.LogLine("These are the third party drivers from the image.");

    std::string line;
    for (UINT i = 0; i < count; ++i)
        ListPackage(report, i, packages[i], line);
}

} // namespace

Outcome GetDrivers(StepReporter& report, const wchar_t* ImagePath, const wchar_t* LogFilePath)
{
    ServicingSession session(report);
    UINT count = 0;
    DismDriverPackage* packages = nullptr; // the platform's; never given back
    if (!session.Open(ImagePath, LogFilePath))
        return session.Exit();

    constexpr BOOL AllDrivers = FALSE;
    if (!report.Succeeded(kGetDriversStep,
                          DismGetDrivers(session.Handle(), AllDrivers, &packages, &count)))
        return session.Exit();
    ListPackages(report, packages, count);
    report.WriteOk(kGetDriversStep);

    // Nothing was changed, so nothing is committed.
    return session.End();
}

Outcome GetDriverInfo(StepReporter& report, const wchar_t* ImagePath, const wchar_t* Driver,
                      const wchar_t* LogFilePath)
{
    ServicingSession session(report);
    DismDriver* drivers = nullptr;
    UINT count = 0;
    DismDriverPackage* package = nullptr;
    if (!session.Open(ImagePath, LogFilePath))
        return session.Exit();

    const HRESULT result = DismGetDriverInfo(session.Handle(), Driver, &drivers, &count, &package);
    // Success ends the call here, with the session open and the API initialised.
    if (SUCCEEDED(result))
        return {Outcome::Exit::Success, result};

    // The console alone tells of a failed query: it has no section and no log line.
    TracePrintW(L"DismGetDriverInfo Failed: %x\n", static_cast<unsigned>(result));
    return session.CleanUp(result);
}

} // namespace kestro::library
