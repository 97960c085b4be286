// platform_calls.cpp - the platform behind the library while it is measured.
#include "platform_calls.h"

#include "disk_stubs.h"
#include "recording.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>

#include <dismapi.h>

namespace kestro::bench {
namespace {

using test::Import;
using test::ImportsOf;

std::tm g_noon = {0, 0, 12, 5, 0, 121, 2, 4, 0}; // 5 January 2021

BOOL WINAPI NoWriteA(LPCSTR, LPCSTR, LPCSTR, LPCSTR)
{
    return TRUE;
}
BOOL WINAPI NoWriteW(LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR)
{
    return TRUE;
}
__time64_t __cdecl NoTime(__time64_t*)
{
    return 0;
}
std::tm* __cdecl NoLocalTime(const __time64_t*)
{
    return &g_noon;
}
int __cdecl NoPrintA(const char*, va_list)
{
    return 0;
}
int __cdecl NoPrintW(const wchar_t*, va_list)
{
    return 0;
}
int __cdecl NoFlush(FILE*)
{
    return 0;
}
DWORD WINAPI NoLastError()
{
    return 0;
}
HANDLE WINAPI NoOpenFile(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE)
{
    return INVALID_HANDLE_VALUE;
}

// --- the services -----------------------------------------------------------------------------------

constexpr const char* kPlainServices[] = {
    "DismInitialize",   "DismShutdown",      "DismMountImage",       "DismUnmountImage",
    "DismOpenSession",  "DismCloseSession",  "DismCommitImage",      "DismAddDriver",
    "DismRemoveDriver", "DismGetDriverInfo", "CoInitializeSecurity", "CoUninitialize"};

// One for each, so that a recording tells them apart.
template <std::size_t number>
HRESULT WINAPI PlainService()
{
    NoteStub(PlainService<number>);
    return S_OK;
}

BOOL WINAPI InstallDriver(HWND window, LPCWSTR path, DWORD flags, PBOOL restart)
{
    NoteStub(InstallDriver, window, path, flags, restart);
    return TRUE;
}

std::vector<char> g_packages; // packed records, as the platform lays them out
UINT g_packageCount = 0;

HRESULT WINAPI ListPackages(DismSession session, BOOL all, DismDriverPackage** packages,
                            UINT* count)
{
    NoteStub(ListPackages, session, all, OutOfFloor(), OutOfFloor());
    *packages = reinterpret_cast<DismDriverPackage*>(g_packages.data());
    *count = g_packageCount;
    return S_OK;
}

template <class Function>
void* Address(Function* function)
{
    return reinterpret_cast<void*>(function);
}

template <std::size_t... numbers>
Functions Services(std::index_sequence<numbers...>)
{
    return {{kPlainServices[numbers], Address(PlainService<numbers>)}...,
            {"DismGetDrivers", Address(ListPackages)},
            {"DiInstallDriverW", Address(InstallDriver)},
            {"CoCreateInstance", Address(CreateDiskService)}};
}

} // namespace

void MakePackages(UINT count)
{
    static std::deque<std::wstring> names;
    g_packages.assign(count * sizeof(DismDriverPackage), 0);
    g_packageCount = count;
    names.clear();
    for (UINT i = 0; i < count; ++i) {
        DismDriverPackage package = {};
        package.PublishedName = names.emplace_back(L"oem" + std::to_wstring(i) + L".inf").c_str();
        package.OriginalFileName =
            names
                .emplace_back(L"C:\\mount\\Windows\\System32\\DriverStore\\FileRepository\\net" +
                              std::to_wstring(i) + L".inf_amd64_0123456789abcdef\\net.inf")
                .c_str();
        std::memcpy(&g_packages[i * sizeof package], &package, sizeof package);
    }
}

const Platform& RealPlatform()
{
    static const Platform platform = {
        WritePrivateProfileStringA,
        WritePrivateProfileStringW,
        MultiByteToWideChar,
        WideCharToMultiByte,
        SysAllocString,
        SysFreeString,
        GetLastError,
        _time64,
        _localtime64,
        NoPrintA,
        NoPrintW,
        NoFlush,
        CreateFileW,
    };
    return platform;
}

const Platform& EmptyPlatform()
{
    static const Platform platform = {
        NoWriteA,
        NoWriteW,
        MultiByteToWideChar,
        WideCharToMultiByte,
        SysAllocString,
        SysFreeString,
        NoLastError,
        NoTime,
        NoLocalTime,
        NoPrintA,
        NoPrintW,
        NoFlush,
        NoOpenFile,
    };
    return platform;
}

Functions FunctionsOf(const Platform& platform)
{
    Functions functions = Services(std::make_index_sequence<std::size(kPlainServices)>());
    functions.merge(Functions{{"WritePrivateProfileStringA", Address(platform.writeA)},
                              {"WritePrivateProfileStringW", Address(platform.writeW)},
                              {"MultiByteToWideChar", Address(platform.toWide)},
                              {"WideCharToMultiByte", Address(platform.toNarrow)},
                              {"SysAllocString", Address(platform.copyString)},
                              {"SysFreeString", Address(platform.freeString)},
                              {"GetLastError", Address(platform.lastError)},
                              {"_time64", Address(platform.time)},
                              {"_localtime64", Address(platform.localTime)},
                              {"vprintf", Address(platform.printA)},
                              {"vwprintf", Address(platform.printW)},
                              {"fflush", Address(platform.flush)},
                              {"CreateFileW", Address(platform.openFile)}});
    return functions;
}

Redirected::Redirected(const Functions& functions)
{
    for (const Import& import : ImportsOf(GetModuleHandleW(L"Kestro.dll")))
        if (const auto found = functions.find(import.name); found != functions.end()) {
            originals_.push_back({import, *import.slot});
            Redirect(import, found->second);
        }
}

Redirected::~Redirected()
{
    for (const auto& [import, function] : originals_)
        Redirect(import, function);
}

} // namespace kestro::bench
