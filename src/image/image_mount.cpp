// image_mount.cpp - mounting an image file into a directory and unmounting it.
#include "image/image_mount.h"

#include "image/servicing_steps.h"
#include "report/decimal_text.h"

namespace kestro::library {
namespace {

constexpr Step kMountStep = {"DISM_MOUNT", "DismMountImage Failed. Following error code."};
constexpr Step kUnmountStep = {"DISM_UNMOUNT", "DismUnmountImage Failed. Following error code."};

Outcome MountExit(StepReporter& report, bool mounted, const wchar_t* MountPath)
{
    const HRESULT result = report.WriteFailedStep();

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

Outcome UnmountExit(StepReporter& report)
{
    // Here a failing shutdown logs its own code, leaves no Result, and reports under this name.
    constexpr Step shutdownStep = {"VHDX_RESTORE", kShutdownStep.failureLine};

    const HRESULT result = report.WriteFailedStep();

    const HRESULT shutdown = DismShutdown();
    if (FAILED(shutdown))
        report.ReportFailure(shutdownStep, shutdown);

    TraceReturnCode(result);
    return {Outcome::Exit::Failure, result};
}

} // namespace

Outcome MountWimImage(StepReporter& report, const wchar_t* ImageFilePath, const wchar_t* MountPath,
                      const wchar_t* LogFilePath)
{
    bool mounted = false;
    if (!Initialized(report, LogFilePath))
        return MountExit(report, mounted, MountPath);

    report.LogLine("Mounting image...");
    constexpr UINT firstImage = 1;
    if (!report.Succeeded(kMountStep, DismMountImage(ImageFilePath, MountPath, firstImage, nullptr,
                                                     DismImageIndex, DISM_MOUNT_READWRITE, nullptr,
                                                     nullptr, nullptr)))
        return MountExit(report, mounted, MountPath);
    report.LogLine("Image mounted successfully.");
    report.WriteOk(kMountStep);
    mounted = true;

    const HRESULT result = DismShutdown();
    if (!report.Succeeded(kShutdownStep, result))
        return MountExit(report, mounted, MountPath);
    // A good mount ends here: unlike an unmount it leaves no section for its shutdown.
    return {Outcome::Exit::Success, result};
}

Outcome UnmountWimImage(StepReporter& report, const wchar_t* MountPath, std::uint32_t Flags,
                        const wchar_t* LogFilePath)
{
    if (!Initialized(report, LogFilePath))
        return UnmountExit(report);

    report.LogLine("Unmounting image...");
    // Signed text, so that flags with the top bit set read negative.
    report.Write(kUnmountStep.section, "Flags",
                 ToDecimalText(static_cast<std::int32_t>(Flags)).c_str());
    if (!report.Succeeded(kUnmountStep,
                          DismUnmountImage(MountPath, Flags, nullptr, nullptr, nullptr)))
        return UnmountExit(report);
    report.LogLine("Image unmounted successfully.");
    report.WriteOk(kUnmountStep);

    const HRESULT result = DismShutdown();
    if (!report.Succeeded(kShutdownStep, result))
        return UnmountExit(report);
    report.WriteOk(kShutdownStep);
    return {Outcome::Exit::Success, result};
}

} // namespace kestro::library
