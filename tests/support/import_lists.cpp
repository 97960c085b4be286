// import_lists.cpp - the functions that Kestro.dll may import.
#include "support/import_lists.h"

#include <initializer_list>
#include <utility>

namespace kestro::test {

namespace {

using Group = std::pair<std::string_view, std::initializer_list<std::string_view>>;

std::vector<ListedImport> Flatten(std::initializer_list<Group> groups)
{
    std::vector<ListedImport> list;
    for (const auto& [dll, names] : groups)
        for (const std::string_view name : names)
            list.push_back({dll, name});
    return list;
}

} // namespace

const std::vector<ListedImport>& PlatformImports()
{
    static const std::vector<ListedImport> list = Flatten({
        {"dismapi.dll",
         {"DismAddDriver", "DismCloseSession", "DismCommitImage", "DismGetDriverInfo",
          "DismGetDrivers", "DismInitialize", "DismMountImage", "DismOpenSession",
          "DismRemoveDriver", "DismShutdown", "DismUnmountImage"}},
        {"kernel32.dll",
         {"CreateFileW", "GetLastError", "MultiByteToWideChar", "WideCharToMultiByte",
          "WritePrivateProfileStringA", "WritePrivateProfileStringW"}},
        {"msvcrt.dll", {"_localtime64", "_time64", "_wcsnicmp", "fflush", "vprintf", "vwprintf"}},
        {"newdev.dll", {"DiInstallDriverW"}},
        {"ole32.dll", {"CoCreateInstance", "CoInitializeSecurity", "CoUninitialize"}},
        {"oleaut32.dll", {"SysAllocString", "SysFreeString"}},
    });
    return list;
}

const std::vector<ListedImport>& UnreachedImports()
{
    static const std::vector<ListedImport> list = Flatten({
        {"kernel32.dll",
         {"GetProcAddress", "GetSystemTimeAsFileTime", "GetTickCount64", "LoadLibraryW",
          "OpenProcess", "OutputDebugStringA", "ResumeThread", "Sleep", "SuspendThread",
          "WaitForMultipleObjects"}},
        {"msvcrt.dll",
         {"_beginthreadex", "_close", "_endthreadex", "_read", "exit", "fprintf", "fwrite",
          "printf", "vfprintf"}},
    });
    return list;
}

const std::vector<ListedImport>& RuntimeImports()
{
    static const std::vector<ListedImport> list = Flatten({
        {"kernel32.dll",
         {"AddVectoredExceptionHandler",
          "CloseHandle",
          "CreateEventA",
          "CreateSemaphoreA",
          "DeleteCriticalSection",
          "DuplicateHandle",
          "EnterCriticalSection",
          "GetCurrentProcess",
          "GetCurrentProcessId",
          "GetCurrentThread",
          "GetCurrentThreadId",
          "GetHandleInformation",
          "GetModuleHandleW",
          "GetProcessAffinityMask",
          "GetThreadContext",
          "GetThreadPriority",
          "InitializeCriticalSection",
          "IsDebuggerPresent",
          "LeaveCriticalSection",
          "LocalFree",
          "RaiseException",
          "ReleaseSemaphore",
          "RemoveVectoredExceptionHandler",
          "ResetEvent",
          "RtlCaptureContext",
          "RtlLookupFunctionEntry",
          "RtlUnwindEx",
          "RtlVirtualUnwind",
          "SetEvent",
          "SetLastError",
          "SetProcessAffinityMask",
          "SetThreadContext",
          "SetThreadPriority",
          "TlsAlloc",
          "TlsGetValue",
          "TlsSetValue",
          "TryEnterCriticalSection",
          "VirtualProtect",
          "VirtualQuery",
          "WaitForSingleObject",
          "__C_specific_handler"}},
        {"msvcrt.dll",
         {"__iob_func", "_amsg_exit", "_errno",  "_initterm", "_lock",  "_setjmp", "_ultoa",
          "_unlock",    "abort",      "calloc",  "free",      "malloc", "memchr",  "memcmp",
          "memcpy",     "memmove",    "memset",  "realloc",   "signal", "strcmp",  "strlen",
          "strncmp",    "wcslen",     "longjmp", "_strdup"}},
    });
    return list;
}

} // namespace kestro::test
