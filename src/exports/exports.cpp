// exports.cpp - the exported functions: each picks its form's reporter and return sense. They are
// documented in kestro.h.
//
// noexcept: the only thing that throws inside is memory exhaustion while a text is converted, and
// the log drops such a write where it happens. The listing functions also copy names they were
// given by the host or the platform; that copy's COM error is meant to reach the host.
#include "device/device_access.h"
#include "disk/disk_operations.h"
#include "image/image_drivers.h"
#include "image/image_mount.h"
#include "inventory/image_inventory.h"
#include "report/step_reporter.h"
#include "report/write_test.h"

#include "kestro.h"

namespace library = kestro::library;
using library::NarrowReporter;
using library::NarrowReturn;
using library::QueryReturn;
using library::WideReporter;
using library::WideReturn;

uint8_t KESTRO_CALL MountWimImage(const wchar_t* ImageFilePath, const wchar_t* MountPath,
                                  const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    return NarrowReturn(library::MountWimImage(report, ImageFilePath, MountPath, LogFilePath));
}

uint8_t KESTRO_CALL MountWimImageW(const wchar_t* ImageFilePath, const wchar_t* MountPath,
                                   const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    return WideReturn(library::MountWimImage(report, ImageFilePath, MountPath, LogFilePath));
}

uint8_t KESTRO_CALL UnmountWimImage(const wchar_t* MountPath, uint32_t Flags,
                                    const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    return NarrowReturn(library::UnmountWimImage(report, MountPath, Flags, LogFilePath));
}

uint8_t KESTRO_CALL UnmountWimImageW(const wchar_t* MountPath, uint32_t Flags,
                                     const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    return WideReturn(library::UnmountWimImage(report, MountPath, Flags, LogFilePath));
}

uint8_t KESTRO_CALL AddDriver(const wchar_t* ImagePath, const wchar_t* DriverPath,
                              const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    return NarrowReturn(library::AddDriver(report, ImagePath, DriverPath, LogFilePath));
}

uint8_t KESTRO_CALL AddDriverW(const wchar_t* ImagePath, const wchar_t* DriverPath,
                               const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    return WideReturn(library::AddDriver(report, ImagePath, DriverPath, LogFilePath));
}

uint8_t KESTRO_CALL RemoveDriver(const wchar_t* ImagePath, const wchar_t* DriverPath,
                                 const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    return NarrowReturn(library::RemoveDriver(report, ImagePath, DriverPath, LogFilePath));
}

uint8_t KESTRO_CALL RemoveDriverW(const wchar_t* ImagePath, const wchar_t* DriverPath,
                                  const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    return WideReturn(library::RemoveDriver(report, ImagePath, DriverPath, LogFilePath));
}

uint8_t KESTRO_CALL AddDriverList(const wchar_t* ImagePath, const wchar_t* const* DriverPaths,
                                  const wchar_t* LogFilePath, const char* resultFile)
{
    NarrowReporter report(resultFile);
    return NarrowReturn(library::AddDriverList(report, ImagePath, DriverPaths, LogFilePath));
}

uint8_t KESTRO_CALL AddDriverListW(const wchar_t* ImagePath, const wchar_t* const* DriverPaths,
                                   const wchar_t* LogFilePath, const wchar_t* resultFile)
{
    WideReporter report(resultFile);
    return WideReturn(library::AddDriverList(report, ImagePath, DriverPaths, LogFilePath));
}

uint8_t KESTRO_CALL GetDrivers(const wchar_t* ImagePath, const wchar_t* LogFilePath,
                               const char* resultFile)
{
    NarrowReporter report(resultFile);
    return NarrowReturn(library::GetDrivers(report, ImagePath, LogFilePath));
}

uint8_t KESTRO_CALL GetDriversW(const wchar_t* ImagePath, const wchar_t* LogFilePath,
                                const wchar_t* resultFile)
{
    WideReporter report(resultFile);
    return WideReturn(library::GetDrivers(report, ImagePath, LogFilePath));
}

uint8_t KESTRO_CALL GetDriverInfo(const wchar_t* ImagePath, const wchar_t* Driver,
                                  const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    const library::Outcome outcome = library::GetDriverInfo(report, ImagePath, Driver, LogFilePath);
    return QueryReturn(outcome, NarrowReturn(outcome));
}

uint8_t KESTRO_CALL GetDriverInfoW(const wchar_t* ImagePath, const wchar_t* Driver,
                                   const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    const library::Outcome outcome = library::GetDriverInfo(report, ImagePath, Driver, LogFilePath);
    return QueryReturn(outcome, WideReturn(outcome));
}

int32_t KESTRO_CALL CleanDisk(const wchar_t* diskName, uint8_t force, uint8_t forceOEM,
                              uint8_t fullClean, const char* resultFile) noexcept
{
    return library::CleanDisk(diskName, force, forceOEM, fullClean, resultFile);
}

int32_t KESTRO_CALL OnlineDisk(const wchar_t* diskName) noexcept
{
    return library::OnlineDisk(diskName);
}

int32_t KESTRO_CALL OfflineDisk(const wchar_t* diskName) noexcept
{
    return library::OfflineDisk(diskName);
}

int32_t KESTRO_CALL InfInstall(const wchar_t* infPath) noexcept
{
    return library::InfInstall(infPath);
}

void* KESTRO_CALL OpenVdFile(const wchar_t* path) noexcept
{
    return library::OpenVdFile(path);
}

void* KESTRO_CALL OpenPhDrive(const wchar_t* path) noexcept
{
    return library::OpenPhDrive(path);
}

void KESTRO_CALL WriteTest(const char* resultFile) noexcept
{
    library::WriteTest(resultFile);
}

void KESTRO_CALL WriteTestW(const wchar_t* resultFile) noexcept
{
    library::WriteTestW(resultFile);
}
