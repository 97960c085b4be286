// image_drivers.cpp - changing the driver set of an offline image.
#include "image/image_drivers.h"

#include "base/ansi_name.h"
#include "image/servicing_session.h"

namespace kestro::library {
namespace {

constexpr Step kAddDriverStep = {"DISM_ADDDRIVER", "DismAddDriver Failed. Following error code."};
constexpr Step kRemoveDriverStep = {"DISM_REMOVEDRIVER",
                                    "DismRemoveDriver Failed. Following error code."};
constexpr char kAddDriverErrors[] = "DISM_ADDDRIVER_ERRORS";

HRESULT AddPackage(const ServicingSession& session, const wchar_t* DriverPath)
{
    constexpr BOOL ForceUnsigned = FALSE;
    return DismAddDriver(session.Handle(), DriverPath, ForceUnsigned);
}

// One entry of a list. Its key is its own path; a null entry has none, and a narrow write without a
// key erases its whole section.
void AddListedPackage(StepReporter& report, const ServicingSession& session,
                      const wchar_t* DriverPath)
{
    const AnsiName key(DriverPath);

    const HRESULT result = AddPackage(session, DriverPath);
    if (FAILED(result)) {
        report.LogLine(kAddDriverStep.failureLine);
        report.LogNumber(result);
        report.Write(kAddDriverStep.section, key.Text(), "ERR");
        report.WriteLastError(kAddDriverErrors, key.Text());
    }
    // Also after a failure: a host knows a failed package by its key among the errors alone.
    report.Write(kAddDriverStep.section, key.Text(), "OK");
}

} // namespace

Outcome AddDriver(StepReporter& report, const wchar_t* ImagePath, const wchar_t* DriverPath,
                  const wchar_t* LogFilePath)
{
    ServicingSession session(report);
    if (!session.Open(ImagePath, LogFilePath))
        return session.Exit();

    if (!report.Succeeded(kAddDriverStep, AddPackage(session, DriverPath)))
        return session.Exit();
    report.WriteOk(kAddDriverStep);

    if (!session.Commit())
        return session.Exit();
    return session.End();
}

Outcome RemoveDriver(StepReporter& report, const wchar_t* ImagePath, const wchar_t* DriverPath,
                     const wchar_t* LogFilePath)
{
    ServicingSession session(report);
    if (!session.Open(ImagePath, LogFilePath))
        return session.Exit();

    if (!report.Succeeded(kRemoveDriverStep, DismRemoveDriver(session.Handle(), DriverPath)))
        return session.Exit();
    report.WriteOk(kRemoveDriverStep);

    if (!session.Commit())
        return session.Exit();
    return session.End();
}

Outcome AddDriverList(StepReporter& report, const wchar_t* ImagePath,
                      const wchar_t* const* DriverPaths, const wchar_t* LogFilePath)
{
    ServicingSession session(report);
    if (!session.Open(ImagePath, LogFilePath))
        return session.Exit();

    for (int i = 0; i < kDriverListLength; ++i)
        AddListedPackage(report, session, DriverPaths[i]);

    // Packages that were added are committed even when others failed.
    if (!session.Commit())
        return session.Exit();
    return session.End();
}

} // namespace kestro::library
