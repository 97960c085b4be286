// mount_case.cpp - the steps of mount and unmount, as their calls have to make them.
#include "contract/mount_case.h"

namespace kestro::test {

namespace {

std::string InitializeCall(const MountCase& run)
{
    return "DismInitialize(2, " + Shown(run.log_file, "LogFilePath") + ", NULL)";
}

std::string UnmountCall(const MountCase& run, DWORD flags)
{
    return "DismUnmountImage(" + Shown(run.directory, "MountPath") +
           Format(", 0x%lX, NULL, NULL, NULL)", flags);
}

Expectation ExpectationFor(Form form, const MountCase& run, const Script& script)
{
    const void* file = form == Form::narrow ? static_cast<const void*>(run.result_file.narrow)
                                            : static_cast<const void*>(run.result_file.wide);
    return Expectation(form, script, Shown(file, "ResultFile"));
}

void Prepare(Platform& platform, const MountCase& run)
{
    platform.Name(run.image, "ImageFilePath");
    platform.Name(run.directory, "MountPath");
    platform.Name(run.log_file, "LogFilePath");
    platform.Name(run.result_file.narrow, "ResultFile");
    platform.Name(run.result_file.wide, "ResultFile");
    platform.Answer("DismInitialize", {run.initialize});
    platform.Answer("DismShutdown", {run.shutdown[0], run.shutdown[1]});
}

void ExpectMountExit(Expectation& call, const MountCase& run, const std::string& section,
                     HRESULT failure, bool mounted)
{
    call.Write(section, "Result", "ERR");
    if (mounted) {
        call.Call(UnmountCall(run, 1), run.clean_up);
        if (run.clean_up < 0)
            call.ReportCleanUp("DISM_UNMOUNT", "DismUnmountImage", failure);
    }
    const HRESULT shutdown = run.shutdown[mounted ? 1 : 0];
    call.Call("DismShutdown()", shutdown);
    if (shutdown < 0)
        call.ReportCleanUp("DISM_SHUTDOWN", "DismShutdown", failure);
    call.ReturnCodeLine(failure).Returns(FailureValue(call.GetForm()));
}

void ExpectUnmountExit(Expectation& call, const std::string& section, HRESULT failure,
                       HRESULT shutdown)
{
    call.Write(section, "Result", "ERR");
    call.Call("DismShutdown()", shutdown);
    if (shutdown < 0)
        call.ReportFailure("VHDX_RESTORE", "DismShutdown", shutdown);
    call.ReturnCodeLine(failure).Returns(FailureValue(call.GetForm()));
}

} // namespace

std::string MountCase::Describe() const
{
    return Format("initialize %08X, operation %08X, clean-up %08X, shutdown %08X %08X, flags %lX",
                  static_cast<unsigned>(initialize), static_cast<unsigned>(operation),
                  static_cast<unsigned>(clean_up), static_cast<unsigned>(shutdown[0]),
                  static_cast<unsigned>(shutdown[1]), flags);
}

Expectation ExpectMount(Form form, const MountCase& run, const Script& script)
{
    Expectation call = ExpectationFor(form, run, script);
    call.Call(InitializeCall(run), run.initialize);
    if (run.initialize < 0) {
        call.ReportFailure("DISM_INITIALIZE", "DismInitialize", run.initialize);
        ExpectMountExit(call, run, "DISM_INITIALIZE", run.initialize, false);
        return call;
    }
    call.Write("DISM_INITIALIZE", "Result", "OK");
    call.Log("Mounting image...");
    call.Call("DismMountImage(" + Shown(run.image, "ImageFilePath") + ", " +
                  Shown(run.directory, "MountPath") + ", 1, NULL, 0, 0x0, NULL, NULL, NULL)",
              run.operation);
    if (run.operation < 0) {
        call.ReportFailure("DISM_MOUNT", "DismMountImage", run.operation);
        ExpectMountExit(call, run, "DISM_MOUNT", run.operation, false);
        return call;
    }
    call.Log("Image mounted successfully.").Write("DISM_MOUNT", "Result", "OK");
    call.Call("DismShutdown()", run.shutdown[0]);
    if (run.shutdown[0] < 0) {
        call.ReportFailure("DISM_SHUTDOWN", "DismShutdown", run.shutdown[0]);
        ExpectMountExit(call, run, "DISM_SHUTDOWN", run.shutdown[0], true);
        return call;
    }
    return call.Returns(SuccessValue(form, run.shutdown[0]));
}

void RunMount(Platform& platform, Form form, const MountCase& run)
{
    Prepare(platform, run);
    platform.Answer("DismMountImage", {run.operation});
    platform.Answer("DismUnmountImage", {run.clean_up});
    platform.Returned(KestroLibrary::Get().Call("MountWimImage", form, run.result_file, run.image,
                                                run.directory, run.log_file));
}

testing::AssertionResult MountDoesWhatItHasTo(Form form, const MountCase& run, const Script& script)
{
    Platform platform(script);
    RunMount(platform, form, run);
    return SameTranscript(ExpectMount(form, run, script).Events(), platform.Recorded())
           << NameOf(form) << ": " << run.Describe();
}

Expectation ExpectUnmount(Form form, const MountCase& run, const Script& script)
{
    Expectation call = ExpectationFor(form, run, script);
    call.Call(InitializeCall(run), run.initialize);
    if (run.initialize < 0) {
        call.ReportFailure("DISM_INITIALIZE", "DismInitialize", run.initialize);
        ExpectUnmountExit(call, "DISM_INITIALIZE", run.initialize, run.shutdown[0]);
        return call;
    }
    call.Write("DISM_INITIALIZE", "Result", "OK");
    call.Log("Unmounting image...");
    call.Write("DISM_UNMOUNT", "Flags", Format("%d", static_cast<int>(run.flags)));
    call.Call(UnmountCall(run, run.flags), run.operation);
    if (run.operation < 0) {
        call.ReportFailure("DISM_UNMOUNT", "DismUnmountImage", run.operation);
        ExpectUnmountExit(call, "DISM_UNMOUNT", run.operation, run.shutdown[0]);
        return call;
    }
    call.Log("Image unmounted successfully.").Write("DISM_UNMOUNT", "Result", "OK");
    call.Call("DismShutdown()", run.shutdown[0]);
    if (run.shutdown[0] < 0) {
        call.ReportFailure("DISM_SHUTDOWN", "DismShutdown", run.shutdown[0]);
        ExpectUnmountExit(call, "DISM_SHUTDOWN", run.shutdown[0], run.shutdown[1]);
        return call;
    }
    call.Write("DISM_SHUTDOWN", "Result", "OK");
    return call.Returns(SuccessValue(form, run.shutdown[0]));
}

void RunUnmount(Platform& platform, Form form, const MountCase& run)
{
    Prepare(platform, run);
    platform.Answer("DismUnmountImage", {run.operation});
    platform.Returned(KestroLibrary::Get().Call("UnmountWimImage", form, run.result_file,
                                                run.directory, run.flags, run.log_file));
}

testing::AssertionResult UnmountDoesWhatItHasTo(Form form, const MountCase& run,
                                                const Script& script)
{
    Platform platform(script);
    RunUnmount(platform, form, run);
    return SameTranscript(ExpectUnmount(form, run, script).Events(), platform.Recorded())
           << NameOf(form) << ": " << run.Describe();
}

} // namespace kestro::test
