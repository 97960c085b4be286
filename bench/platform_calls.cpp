// platform_calls.cpp - the platform behind the library while it is measured.
#include "platform_calls.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include <dismapi.h>

namespace kestro::bench {
namespace {

using test::Import;
using test::ImportsOf;

const Platform kSystem = {
    WritePrivateProfileStringA,
    WritePrivateProfileStringW,
    MultiByteToWideChar,
    WideCharToMultiByte,
    SysAllocString,
    SysFreeString,
    GetLastError,
    _time64,
    _localtime64,
    nullptr,
    nullptr,
};

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
HRESULT WINAPI NoService()
{
    return S_OK;
}

std::vector<char> g_packages; // packed records, as the platform lays them out
UINT g_packageCount = 0;

HRESULT WINAPI ListPackages(DismSession, BOOL, DismDriverPackage** packages, UINT* count)
{
    *packages = reinterpret_cast<DismDriverPackage*>(g_packages.data());
    *count = g_packageCount;
    return S_OK;
}

// --- recording ------------------------------------------------------------------------------------

Recording* g_recording = nullptr;
long long g_allocations = 0;

Call& Record(CallKind kind)
{
    return g_recording->calls.emplace_back(Call{kind, {}, 0, 0});
}

BOOL WINAPI RecordWriteA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR path)
{
    Recording& r = *g_recording;
    Record(CALL_WRITE_A) = {
        CALL_WRITE_A, {r.Keep(section), r.Keep(key), r.Keep(value), r.Keep(path)}, 0, 0};
    r.CountWrite(std::strcmp(section, "Log") == 0, std::strcmp(key, "Righe") == 0,
                 std::strcmp(section, "Status") == 0);
    return TRUE;
}
BOOL WINAPI RecordWriteW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR path)
{
    Recording& r = *g_recording;
    Record(CALL_WRITE_W) = {
        CALL_WRITE_W, {r.Keep(section), r.Keep(key), r.Keep(value), r.Keep(path)}, 0, 0};
    r.CountWrite(std::wcscmp(section, L"Log") == 0, std::wcscmp(key, L"Righe") == 0,
                 std::wcscmp(section, L"Status") == 0);
    return TRUE;
}
int WINAPI RecordToWide(UINT page, DWORD flags, LPCSTR text, int length, LPWSTR out, int capacity)
{
    Record(CALL_TO_WIDE) = {CALL_TO_WIDE, {g_recording->Keep(text)}, length, capacity};
    g_recording->conversions += capacity == 0;
    return MultiByteToWideChar(page, flags, text, length, out, capacity);
}
int WINAPI RecordToNarrow(UINT page, DWORD flags, LPCWSTR text, int length, LPSTR out, int capacity,
                          LPCSTR fallback, LPBOOL used)
{
    Record(CALL_TO_NARROW) = {CALL_TO_NARROW, {g_recording->Keep(text)}, length, capacity};
    g_recording->conversions += capacity == 0;
    return WideCharToMultiByte(page, flags, text, length, out, capacity, fallback, used);
}
BSTR WINAPI RecordCopyString(const OLECHAR* text)
{
    Record(CALL_COPY_STRING).text[0] = g_recording->Keep(text);
    return SysAllocString(text);
}
DWORD WINAPI RecordLastError()
{
    Record(CALL_LAST_ERROR);
    return 0;
}
__time64_t __cdecl RecordTime(__time64_t* now)
{
    Record(CALL_TIME);
    return _time64(now);
}
std::tm* __cdecl RecordLocalTime(const __time64_t* now)
{
    Record(CALL_LOCAL_TIME);
    return _localtime64(now);
}
int __cdecl RecordPrintW(const wchar_t*, va_list)
{
    Record(CALL_PRINT_W).text[0] = L"";
    return 0;
}
HRESULT WINAPI RecordService()
{
    Record(CALL_SERVICE);
    return S_OK;
}
HRESULT WINAPI RecordListPackages(DismSession session, BOOL all, DismDriverPackage** packages,
                                  UINT* count)
{
    Record(CALL_SERVICE);
    return ListPackages(session, all, packages, count);
}

void* (*g_malloc)(size_t) = nullptr;

void* __cdecl CountedMalloc(size_t size)
{
    ++g_allocations;
    return g_malloc(size);
}

template <class Function>
void* Address(Function* function)
{
    return reinterpret_cast<void*>(function);
}

Functions WithService(Functions functions, void* service, void* list)
{
    for (const char* name : {"DismInitialize", "DismShutdown", "DismMountImage", "DismUnmountImage",
                             "DismOpenSession", "DismCloseSession", "DismCommitImage",
                             "DismAddDriver", "DismRemoveDriver", "DismGetDriverInfo"})
        functions[name] = service;
    functions["DismGetDrivers"] = list;
    functions["vwprintf"] = functions.count("vwprintf") ? functions["vwprintf"] : Address(NoPrintW);
    functions["fflush"] = Address(NoFlush);
    return functions;
}

Functions RecordingFunctions()
{
    return WithService({{"WritePrivateProfileStringA", Address(RecordWriteA)},
                        {"WritePrivateProfileStringW", Address(RecordWriteW)},
                        {"MultiByteToWideChar", Address(RecordToWide)},
                        {"WideCharToMultiByte", Address(RecordToNarrow)},
                        {"SysAllocString", Address(RecordCopyString)},
                        {"GetLastError", Address(RecordLastError)},
                        {"_time64", Address(RecordTime)},
                        {"_localtime64", Address(RecordLocalTime)},
                        {"vwprintf", Address(RecordPrintW)}},
                       Address(RecordService), Address(RecordListPackages));
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

Functions RealWriterFunctions()
{
    return WithService({}, Address(NoService), Address(ListPackages));
}

// Conversions stay the system's own: their results are needed.
Functions EmptyFunctions()
{
    return WithService({{"WritePrivateProfileStringA", Address(NoWriteA)},
                        {"WritePrivateProfileStringW", Address(NoWriteW)},
                        {"GetLastError", Address(NoLastError)},
                        {"_time64", Address(NoTime)},
                        {"_localtime64", Address(NoLocalTime)}},
                       Address(NoService), Address(ListPackages));
}

Platform EmptyPlatform()
{
    Platform platform = kSystem;
    platform.writeA = NoWriteA;
    platform.writeW = NoWriteW;
    platform.lastError = NoLastError;
    platform.time = NoTime;
    platform.localTime = NoLocalTime;
    platform.printW = NoPrintW;
    platform.service = NoService;
    return platform;
}

Platform RealWriterPlatform()
{
    Platform platform = kSystem;
    platform.printW = NoPrintW;
    platform.service = NoService;
    return platform;
}

Recording RecordCall(const std::function<void()>& call)
{
    Recording recording;
    g_recording = &recording;
    const Redirected redirected(RecordingFunctions());
    call();
    return recording;
}

long long CountAllocations(const std::function<void()>& call)
{
    for (const Import& import : ImportsOf(GetModuleHandleW(L"Kestro.dll")))
        if (import.name == "malloc")
            g_malloc = reinterpret_cast<void* (*)(size_t)>(*import.slot);
    Functions functions = EmptyFunctions();
    functions["malloc"] = Address(CountedMalloc);
    const Redirected redirected(functions);
    call();
    g_allocations = 0;
    call();
    return g_allocations;
}

} // namespace kestro::bench
