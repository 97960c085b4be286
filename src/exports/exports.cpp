// exports.cpp - the exported functions: each picks its form's reporter and return sense. They are
// documented in kestro.h.
//
// noexcept: nothing here throws but memory exhaustion while a text is converted, and the log drops
// such a write where it happens.
#include "image/image_mount.h"
#include "report/step_reporter.h"

#include "kestro.h"

using namespace kestro;

uint8_t KESTRO_CALL MountWimImage(const wchar_t* ImageFilePath, const wchar_t* MountPath,
                                  const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    return NarrowReturn(MountImage(report, ImageFilePath, MountPath, LogFilePath));
}

uint8_t KESTRO_CALL MountWimImageW(const wchar_t* ImageFilePath, const wchar_t* MountPath,
                                   const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    return WideReturn(MountImage(report, ImageFilePath, MountPath, LogFilePath));
}

uint8_t KESTRO_CALL UnmountWimImage(const wchar_t* MountPath, uint32_t Flags,
                                    const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    return NarrowReturn(UnmountImage(report, MountPath, Flags, LogFilePath));
}

uint8_t KESTRO_CALL UnmountWimImageW(const wchar_t* MountPath, uint32_t Flags,
                                     const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    return WideReturn(UnmountImage(report, MountPath, Flags, LogFilePath));
}
