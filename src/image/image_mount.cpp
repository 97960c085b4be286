// image_mount.cpp - mounting an image file into a directory and unmounting it.
#include "image/image_mount.h"

#include "image/servicing_steps.h"
#include "report/decimal_text.h"

namespace kestro::library {
namespace {

constexpr Step kMountStep = {"DISM_MOUNT", "DismMountImage Failed. Following error code."};
constexpr Step kUnmountStep = {"DISM_UNMOUNT", "DismUnmountImage Failed. Following error code."};

Outcome MountExit(StepReporter& report, const Step& failed, HRESULT result, bool mounted,
                  const wchar_t* MountPath)
{
    report.WriteErr(failed.section);

    // An image that was mounted before the shutdown failed is not left behind, and not saved.
    if (mounted) {
        const HRESULT unmounted =
            DismUnmountImage(MountPath, DISM_DISCARD_IMAGE, nullptr, nullptr, nullptr);
        if (FAILED(unmounted))
            report.ReportCleanUpFailure(kUnmountStep, result);
    }

    // Always, even when the first shutdown was the step that failed.
    if (FAILED(DismShutdown()))
        report.ReportCleanUpFailure(kShutdownStep, result);

    TraceReturnCode(result);
    return {Outcome::Exit::Failure, result};
}

Outcome UnmountExit(StepReporter& report, const Step& failed, HRESULT result)
{
    // Here a failing shutdown logs its own code, leaves no Result, and reports under this name.
    constexpr Step shutdownStep = {"VHDX_RESTORE", kShutdownStep.failureLine};

    report.WriteErr(failed.section);

    const HRESULT shutdown = DismShutdown();
    if (FAILED(shutdown))
        report.ReportFailure(shutdownStep, shutdown);

    TraceReturnCode(result);
    return {Outcome::Exit::Failure, result};
}

} // namespace

Outcome MountImage(StepReporter& report, const wchar_t* ImageFilePath, const wchar_t* MountPath,
                   const wchar_t* LogFilePath)
{
    bool mounted = false;
    HRESULT result = S_OK;
    const auto fail = [&](const Step& step) {
        report.ReportFailure(step, result);
        return MountExit(report, step, result, mounted, MountPath);
    };

    result = InitializeServicing(LogFilePath);
    if (FAILED(result))
        return fail(kInitializeStep);
    report.WriteOk(kInitializeStep.section);

    report.LogLine("Mounting image...");
    constexpr UINT firstImage = 1;
    result = DismMountImage(ImageFilePath, MountPath, firstImage, nullptr, DismImageIndex,
                            DISM_MOUNT_READWRITE, nullptr, nullptr, nullptr);
    if (FAILED(result))
        return fail(kMountStep);
    report.LogLine("Image mounted successfully.");
    report.WriteOk(kMountStep.section);
    mounted = true;

    result = DismShutdown();
    if (FAILED(result))
        return fail(kShutdownStep);
    // A good mount ends here: unlike an unmount it leaves no section for its shutdown.
    return {Outcome::Exit::Success, result};
}

Outcome UnmountImage(StepReporter& report, const wchar_t* MountPath, std::uint32_t Flags,
                     const wchar_t* LogFilePath)
{
    HRESULT result = S_OK;
    const auto fail = [&](const Step& step) {
        report.ReportFailure(step, result);
        return UnmountExit(report, step, result);
    };

    result = InitializeServicing(LogFilePath);
    if (FAILED(result))
        return fail(kInitializeStep);
    report.WriteOk(kInitializeStep.section);

    report.LogLine("Unmounting image...");
    // Signed text, so that flags with the top bit set read negative.
    report.Write(kUnmountStep.section, "Flags",
                 ToDecimalText(static_cast<std::int32_t>(Flags)).c_str());
    result = DismUnmountImage(MountPath, Flags, nullptr, nullptr, nullptr);
    if (FAILED(result))
        return fail(kUnmountStep);
    report.LogLine("Image unmounted successfully.");
    report.WriteOk(kUnmountStep.section);

    result = DismShutdown();
    if (FAILED(result))
        return fail(kShutdownStep);
    report.WriteOk(kShutdownStep.section);
    return {Outcome::Exit::Success, result};
}

} // namespace kestro::library
