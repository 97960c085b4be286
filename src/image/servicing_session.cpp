// servicing_session.cpp - the bracket around every driver operation.
#include "image/servicing_session.h"

#include "image/servicing_steps.h"

namespace kestro::library {
namespace {

constexpr Step kOpenSessionStep = {"DISM_OPENSESSION",
                                   "DismOpenSession Failed. Following error code."};
constexpr Step kCommitImageStep = {"DISM_COMMITIMAGE",
                                   "DismCommitImage Failed. Following error code."};
constexpr Step kCloseSessionStep = {"DISM_CLOSESESSION",
                                    "DismCloseSession Failed. Following error code."};

} // namespace

bool ServicingSession::Open(const wchar_t* ImagePath, const wchar_t* LogFilePath)
{
    return Initialized(report_, LogFilePath) &&
           report_.Succeeded(kOpenSessionStep,
                             DismOpenSession(ImagePath, nullptr, nullptr, &session_));
}

bool ServicingSession::Commit()
{
    constexpr DWORD plainCommit = 0;
    return report_.Succeeded(kCommitImageStep,
                             DismCommitImage(session_, plainCommit, nullptr, nullptr, nullptr));
}

Outcome ServicingSession::End()
{
    DismCloseSession(session_);

    const HRESULT result = DismShutdown();
    if (!report_.Succeeded(kShutdownStep, result))
        return Exit();
    report_.WriteOk(kShutdownStep);
    return {Outcome::Exit::Success, result};
}

Outcome ServicingSession::Exit()
{
    return CleanUp(report_.WriteFailedStep());
}

Outcome ServicingSession::CleanUp(HRESULT result)
{
    if (FAILED(DismCloseSession(session_)))
        report_.ReportCleanUpFailure(kCloseSessionStep, result);
    if (FAILED(DismShutdown()))
        report_.ReportCleanUpFailure(kShutdownStep, result);

    TraceReturnCode(result);
    return {Outcome::Exit::Failure, result};
}

} // namespace kestro::library
