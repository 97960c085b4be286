// servicing_doubles.cpp - doubles of the image-servicing API.
#include "support/platform.h"

#include <dismapi.h>

namespace kestro::test {

namespace {

HRESULT Answered(const char* function, const std::string& arguments)
{
    Platform& platform = Platform::Active();
    const HRESULT result = platform.NextAnswer(function);
    platform.Record(
        Format("%s(%s) -> %08X", function, arguments.c_str(), static_cast<unsigned>(result)));
    return result;
}

std::string Show(const wchar_t* text)
{
    return Platform::Active().Show(text);
}

std::string Show(const void* pointer)
{
    return Platform::Active().ShowPointer(pointer);
}

// The three that every long operation ends with.
std::string Show(HANDLE cancel, DISM_PROGRESS_CALLBACK progress, void* user_data)
{
    return Show(static_cast<const void*>(cancel)) + ", " + (progress ? "a callback" : "NULL") +
           ", " + Show(static_cast<const void*>(user_data));
}

HRESULT WINAPI Initialize(DismLogLevel level, PCWSTR log, PCWSTR scratch)
{
    return Answered("DismInitialize",
                    Format("%d, ", static_cast<int>(level)) + Show(log) + ", " + Show(scratch));
}

HRESULT WINAPI Shutdown()
{
    return Answered("DismShutdown", "");
}

HRESULT WINAPI MountImage(PCWSTR image, PCWSTR directory, UINT index, PCWSTR name,
                          DismImageIdentifier identifier, DWORD flags, HANDLE cancel,
                          DISM_PROGRESS_CALLBACK progress, PVOID user_data)
{
    return Answered("DismMountImage",
                    Show(image) + ", " + Show(directory) + Format(", %u, ", index) + Show(name) +
                        Format(", %d, 0x%lX, ", static_cast<int>(identifier), flags) +
                        Show(cancel, progress, user_data));
}

HRESULT WINAPI UnmountImage(PCWSTR directory, DWORD flags, HANDLE cancel,
                            DISM_PROGRESS_CALLBACK progress, PVOID user_data)
{
    return Answered("DismUnmountImage", Show(directory) + Format(", 0x%lX, ", flags) +
                                            Show(cancel, progress, user_data));
}

HRESULT WINAPI OpenSession(PCWSTR image, PCWSTR windows, PCWSTR drive, DismSession* session)
{
    const HRESULT result =
        Answered("DismOpenSession", Show(image) + ", " + Show(windows) + ", " + Show(drive) +
                                        Format(", slot of %u", *session));
    if (result >= 0)
        *session = Platform::Active().session;
    return result;
}

HRESULT WINAPI CloseSession(DismSession session)
{
    return Answered("DismCloseSession", Format("%u", session));
}

HRESULT WINAPI CommitImage(DismSession session, DWORD flags, HANDLE cancel,
                           DISM_PROGRESS_CALLBACK progress, PVOID user_data)
{
    return Answered("DismCommitImage",
                    Format("%u, 0x%lX, ", session, flags) + Show(cancel, progress, user_data));
}

HRESULT WINAPI AddDriver(DismSession session, PCWSTR path, WINBOOL force_unsigned)
{
    return Answered("DismAddDriver",
                    Format("%u, ", session) + Show(path) + Format(", %d", force_unsigned));
}

HRESULT WINAPI RemoveDriver(DismSession session, PCWSTR path)
{
    return Answered("DismRemoveDriver", Format("%u, ", session) + Show(path));
}

HRESULT WINAPI GetDrivers(DismSession session, WINBOOL all, DismDriverPackage** packages,
                          UINT* count)
{
    const HRESULT result =
        Answered("DismGetDrivers", Format("%u, %d, slot of ", session, all) +
                                       Show(static_cast<const void*>(*packages)) +
                                       Format(", slot of %u", *count));
    if (result >= 0) {
        *packages = static_cast<DismDriverPackage*>(const_cast<void*>(Platform::Active().packages));
        *count = Platform::Active().package_count;
    }
    return result;
}

HRESULT WINAPI GetDriverInfo(DismSession session, PCWSTR path, DismDriver** drivers, UINT* count,
                             DismDriverPackage** package)
{
    return Answered("DismGetDriverInfo", Format("%u, ", session) + Show(path) + ", slot of " +
                                             Show(static_cast<const void*>(*drivers)) +
                                             Format(", slot of %u, slot of ", *count) +
                                             Show(static_cast<const void*>(*package)));
}

const Doubles doubles{
    {"DismInitialize", Initialize},       {"DismShutdown", Shutdown},
    {"DismMountImage", MountImage},       {"DismUnmountImage", UnmountImage},
    {"DismOpenSession", OpenSession},     {"DismCloseSession", CloseSession},
    {"DismCommitImage", CommitImage},     {"DismAddDriver", AddDriver},
    {"DismRemoveDriver", RemoveDriver},   {"DismGetDrivers", GetDrivers},
    {"DismGetDriverInfo", GetDriverInfo},
};

} // namespace

} // namespace kestro::test
