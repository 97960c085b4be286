// import_lists.cpp - the functions that the tests watch.
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

} // namespace kestro::test
