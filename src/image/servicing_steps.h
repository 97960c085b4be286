// servicing_steps.h - the steps of the image-servicing API that more than one operation takes, with
// the sections and log lines they report under.
#pragma once

#include "report/console_trace.h"
#include "report/step_reporter.h"

#include <windows.h>

#include <dismapi.h>

namespace kestro::library {

inline constexpr Step kInitializeStep = {"DISM_INITIALIZE",
                                         "DismInitialize Failed. Following error code."};
inline constexpr Step kShutdownStep = {"DISM_SHUTDOWN",
                                       "DismShutdown Failed. Following error code."};

// The first step of every operation. Errors, warnings and information go to the platform's own log; it
// chooses its scratch directory.
inline bool Initialized(StepReporter& report, const wchar_t* LogFilePath)
{
    if (!report.Succeeded(kInitializeStep,
                          DismInitialize(DismLogErrorsWarningsInfo, LogFilePath, nullptr)))
        return false;
    report.WriteOk(kInitializeStep);
    return true;
}

// The console line of every failure exit.
inline void TraceReturnCode(HRESULT result)
{
    TracePrintW(L"Return code is: %x\n", static_cast<unsigned>(result));
}

} // namespace kestro::library
