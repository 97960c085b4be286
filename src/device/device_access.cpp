// device_access.cpp - installing a driver on the running system, and raw handles.
#include "device/device_access.h"

#include <windows.h>

#include <newdev.h>

namespace kestro::library {
namespace {

void* HandleOrNull(HANDLE handle)
{
    return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

} // namespace

std::int32_t InfInstall(const wchar_t* infPath)
{
    // Not forced, and no word on whether a restart is needed.
    return DiInstallDriverW(nullptr, infPath, 0, nullptr) ? 1 : 0;
}

void* OpenVdFile(const wchar_t* path)
{
    return HandleOrNull(CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
}

void* OpenPhDrive(const wchar_t* path)
{
    constexpr DWORD exclusive = 0;
    return HandleOrNull(CreateFileW(path, GENERIC_WRITE, exclusive, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_WRITE_THROUGH | FILE_FLAG_NO_BUFFERING, nullptr));
}

} // namespace kestro::library
