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

using namespace kestro::library;

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

uint8_t KESTRO_CALL AddDriver(const wchar_t* ImagePath, const wchar_t* DriverPath,
                              const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    return NarrowReturn(AddImageDriver(report, ImagePath, DriverPath, LogFilePath));
}

uint8_t KESTRO_CALL AddDriverW(const wchar_t* ImagePath, const wchar_t* DriverPath,
                               const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    return WideReturn(AddImageDriver(report, ImagePath, DriverPath, LogFilePath));
}

uint8_t KESTRO_CALL RemoveDriver(const wchar_t* ImagePath, const wchar_t* DriverPath,
                                 const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    return NarrowReturn(RemoveImageDriver(report, ImagePath, DriverPath, LogFilePath));
}

uint8_t KESTRO_CALL RemoveDriverW(const wchar_t* ImagePath, const wchar_t* DriverPath,
                                  const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    return WideReturn(RemoveImageDriver(report, ImagePath, DriverPath, LogFilePath));
}

uint8_t KESTRO_CALL AddDriverList(const wchar_t* ImagePath, const wchar_t* const* DriverPaths,
                                  const wchar_t* LogFilePath, const char* resultFile)
{
    NarrowReporter report(resultFile);
    return NarrowReturn(AddImageDriverList(report, ImagePath, DriverPaths, LogFilePath));
}

uint8_t KESTRO_CALL AddDriverListW(const wchar_t* ImagePath, const wchar_t* const* DriverPaths,
                                   const wchar_t* LogFilePath, const wchar_t* resultFile)
{
    WideReporter report(resultFile);
    return WideReturn(AddImageDriverList(report, ImagePath, DriverPaths, LogFilePath));
}

uint8_t KESTRO_CALL GetDrivers(const wchar_t* ImagePath, const wchar_t* LogFilePath,
                               const char* resultFile)
{
    NarrowReporter report(resultFile);
    return NarrowReturn(ListImageDrivers(report, ImagePath, LogFilePath));
}

uint8_t KESTRO_CALL GetDriversW(const wchar_t* ImagePath, const wchar_t* LogFilePath,
                                const wchar_t* resultFile)
{
    WideReporter report(resultFile);
    return WideReturn(ListImageDrivers(report, ImagePath, LogFilePath));
}

uint8_t KESTRO_CALL GetDriverInfo(const wchar_t* ImagePath, const wchar_t* Driver,
                                  const wchar_t* LogFilePath, const char* resultFile) noexcept
{
    NarrowReporter report(resultFile);
    const Outcome outcome = QueryImageDriver(report, ImagePath, Driver, LogFilePath);
    return QueryReturn(outcome, NarrowReturn(outcome));
}

uint8_t KESTRO_CALL GetDriverInfoW(const wchar_t* ImagePath, const wchar_t* Driver,
                                   const wchar_t* LogFilePath, const wchar_t* resultFile) noexcept
{
    WideReporter report(resultFile);
    const Outcome outcome = QueryImageDriver(report, ImagePath, Driver, LogFilePath);
    return QueryReturn(outcome, WideReturn(outcome));
}

int32_t KESTRO_CALL CleanDisk(const wchar_t* diskName, uint8_t force, uint8_t forceOEM,
                              uint8_t fullClean, const char* resultFile) noexcept
{
    return kestro::library::CleanDisk(diskName, force, forceOEM, fullClean, resultFile);
}

int32_t KESTRO_CALL OnlineDisk(const wchar_t* diskName) noexcept
{
    return kestro::library::OnlineDisk(diskName);
}

int32_t KESTRO_CALL OfflineDisk(const wchar_t* diskName) noexcept
{
    return kestro::library::OfflineDisk(diskName);
}

int32_t KESTRO_CALL InfInstall(const wchar_t* infPath) noexcept
{
    return InstallInf(infPath);
}

void* KESTRO_CALL OpenVdFile(const wchar_t* path) noexcept
{
    return OpenFileForReading(path);
}

void* KESTRO_CALL OpenPhDrive(const wchar_t* path) noexcept
{
    return OpenDriveForWriting(path);
}

void KESTRO_CALL WriteTest(const char* resultFile) noexcept
{
    WriteTestKeys(resultFile);
}

void KESTRO_CALL WriteTestW(const wchar_t* resultFile) noexcept
{
    WriteTestKeysW(resultFile);
}
