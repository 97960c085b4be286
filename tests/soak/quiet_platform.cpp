// quiet_platform.cpp - the stubs of the servicing API, COM, the console and memory.
#include "soak/quiet_platform.h"

#include "support/kestro_library.h"
#include "support/transcript.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <dismapi.h>
#include <oleauto.h>
#include <stdexcept>

namespace kestro::test {

namespace {

constexpr HRESULT some_failure = static_cast<HRESULT>(0x80070057);

thread_local QuietCall* active = nullptr;
// Of this thread; the library makes and frees the memory of a call on the call's thread.
thread_local long live_blocks = 0;

// --- servicing API ---

Leftovers& Counts()
{
    return QuietCall::Active().counts;
}

HRESULT NextResult()
{
    return QuietCall::Active().NextResult();
}

HRESULT WINAPI Initialize(DismLogLevel, PCWSTR, PCWSTR)
{
    const HRESULT result = NextResult();
    if (SUCCEEDED(result))
        Counts().initialisations = 1;
    return result;
}

// A shutdown and a close that report a failure have done their work all the same.
HRESULT WINAPI Shutdown()
{
    Counts().initialisations = 0;
    return NextResult();
}

HRESULT WINAPI OpenSession(PCWSTR, PCWSTR, PCWSTR, DismSession* session)
{
    const HRESULT result = NextResult();
    if (SUCCEEDED(result)) {
        *session = 7;
        Counts().sessions = 1;
    }
    return result;
}

HRESULT WINAPI CloseSession(DismSession)
{
    Counts().sessions = 0;
    return NextResult();
}

HRESULT WINAPI Plain()
{
    return NextResult();
}

// Three packages with names of the thread's own.
struct PackageList {
    std::wstring names[3][2];
    DismDriverPackage records[3] = {};

    explicit PackageList(int tag)
    {
        for (int i = 0; i < 3; ++i) {
            names[i][0] = L"oem" + std::to_wstring(tag * 10 + i) + L".inf";
            names[i][1] = L"C:\\store\\maker" + std::to_wstring(tag) + L"\\driver.inf";
            const wchar_t* published = names[i][0].c_str();
            const wchar_t* original = names[i][1].c_str();
            records[i].PublishedName = published;
            records[i].OriginalFileName = original;
        }
    }
};

HRESULT WINAPI GetDrivers(DismSession, BOOL, DismDriverPackage** packages, UINT* count)
{
    const HRESULT result = NextResult();
    if (FAILED(result))
        return result;
    QuietCall& call = QuietCall::Active();
    *packages = call.Keep(std::make_shared<PackageList>(call.tag))->records;
    *count = 3;
    ++Counts().records;
    return result;
}

HRESULT WINAPI GetDriverInfo(DismSession, PCWSTR, DismDriver** drivers, UINT* count,
                             DismDriverPackage** package)
{
    static DismDriver driver;
    static DismDriverPackage described;
    const HRESULT result = NextResult();
    if (FAILED(result))
        return result;
    *drivers = &driver;
    *count = 1;
    *package = &described;
    Counts().records += 2;
    return result;
}

// --- COM and the device installer ---

HRESULT WINAPI CreateInstance(REFCLSID, IUnknown*, DWORD, REFIID, void** object)
{
    const HRESULT result = NextResult();
    return FAILED(result) ? result : CreateQuietLoader(object);
}

HRESULT WINAPI InitializeSecurity(void*, LONG, void*, void*, DWORD, DWORD, void*, DWORD, void*)
{
    return RPC_E_TOO_LATE;
}

void WINAPI Uninitialize()
{
    ++Counts().uninitialised;
}

BOOL WINAPI InstallDriver(HWND, LPCWSTR, DWORD, PBOOL)
{
    return SUCCEEDED(NextResult());
}

BSTR WINAPI CopyString(const OLECHAR* text)
{
    const BSTR copy = SysAllocString(text);
    Counts().copies += copy != nullptr;
    return copy;
}

void WINAPI FreeString(BSTR copy)
{
    Counts().copies -= copy != nullptr;
    SysFreeString(copy);
}

// --- profile writers ---

std::atomic<bool> writes_files = true;

BOOL WINAPI WriteProfileA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR file)
{
    return writes_files && WritePrivateProfileStringA(section, key, value, file);
}

BOOL WINAPI WriteProfileW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR file)
{
    return writes_files && WritePrivateProfileStringW(section, key, value, file);
}

// --- console, clock ---

int __cdecl PrintNarrow(const char*, va_list)
{
    return 0;
}

int __cdecl PrintWide(const wchar_t*, va_list)
{
    return 0;
}

int __cdecl Flush(FILE*)
{
    return 0;
}

thread_local int clock_minutes = 0;

__time64_t __cdecl TimeOfThread(__time64_t*)
{
    return clock_minutes;
}

std::tm* __cdecl LocalTimeOfThread(const __time64_t* time)
{
    static thread_local std::tm local;
    local = {};
    local.tm_year = 121;
    local.tm_mon = 2;
    local.tm_mday = 5;
    local.tm_hour = static_cast<int>(*time / 60 % 24);
    local.tm_min = static_cast<int>(*time % 60);
    return &local;
}

DWORD WINAPI LastErrorOfThread()
{
    return static_cast<DWORD>(5000 + QuietCall::Active().tag);
}

// --- memory ---

void* __cdecl Allocate(size_t size)
{
    void* const block = std::malloc(size);
    live_blocks += block != nullptr;
    return block;
}

void* __cdecl AllocateZeroed(size_t count, size_t size)
{
    void* const block = std::calloc(count, size);
    live_blocks += block != nullptr;
    return block;
}

void* __cdecl Reallocate(void* block, size_t size)
{
    void* const moved = std::realloc(block, size);
    live_blocks += (moved != nullptr) - (block != nullptr);
    return moved;
}

void __cdecl Free(void* block)
{
    live_blocks -= block != nullptr;
    std::free(block);
}

template <typename Result, typename... Arguments>
void* Address(Result (*function)(Arguments...))
{
    return reinterpret_cast<void*>(function);
}

} // namespace

std::string ToText(const Leftovers& left)
{
    const std::pair<long, const char*> counts[] = {
        {left.library_blocks, "memory blocks"},   {left.copies, "name copies"},
        {left.records, "record arrays"},          {left.sessions, "open session"},
        {left.initialisations, "initialisation"}, {left.objects, "object references"},
        {left.strings, "property strings"},       {left.uninitialised, "CoUninitialize"},
    };
    std::string text;
    for (const auto& [count, what] : counts)
        if (count != 0)
            text += Format("%s%ld %s", text.empty() ? "" : ", ", count, what);
    return text.empty() ? "nothing" : text;
}

QuietCall::QuietCall(int fails_at, int call_tag) : tag(call_tag), fails_at_(fails_at)
{
    counts.library_blocks = -live_blocks;
    active = this;
}

QuietCall::~QuietCall()
{
    active = nullptr;
}

QuietCall& QuietCall::Active()
{
    if (!active)
        std::abort();
    return *active;
}

HRESULT QuietCall::NextResult()
{
    return ++calls_ == fails_at_ ? some_failure : S_OK;
}

Leftovers QuietCall::Left() const
{
    Leftovers left = counts;
    left.library_blocks += live_blocks;
    return left;
}

void SetClockOfThread(int minutes)
{
    clock_minutes = minutes;
}

QuietPlatform::QuietPlatform()
{
    for (Import& import : ImportsOf(KestroLibrary::Get().Module()))
        imports_.emplace(import.name, import);

    Replace("DismInitialize", Address(Initialize));
    Replace("DismShutdown", Address(Shutdown));
    Replace("DismOpenSession", Address(OpenSession));
    Replace("DismCloseSession", Address(CloseSession));
    Replace("DismGetDrivers", Address(GetDrivers));
    Replace("DismGetDriverInfo", Address(GetDriverInfo));
    for (const char* name : {"DismMountImage", "DismUnmountImage", "DismCommitImage",
                             "DismAddDriver", "DismRemoveDriver"})
        Replace(name, Address(Plain));
    Replace("CoCreateInstance", Address(CreateInstance));
    Replace("CoInitializeSecurity", Address(InitializeSecurity));
    Replace("CoUninitialize", Address(Uninitialize));
    Replace("DiInstallDriverW", Address(InstallDriver));
    Replace("SysAllocString", Address(CopyString));
    Replace("SysFreeString", Address(FreeString));
    writes_files = true;
    Replace("WritePrivateProfileStringA", Address(WriteProfileA));
    Replace("WritePrivateProfileStringW", Address(WriteProfileW));
    Replace("vprintf", Address(PrintNarrow));
    Replace("vwprintf", Address(PrintWide));
    Replace("fflush", Address(Flush));
    Replace("malloc", Address(Allocate));
    Replace("calloc", Address(AllocateZeroed));
    Replace("realloc", Address(Reallocate));
    Replace("free", Address(Free));
}

QuietPlatform::~QuietPlatform()
{
    for (const auto& [import, original] : originals_)
        Redirect(import, original);
}

void QuietPlatform::WriteFiles(bool write)
{
    writes_files = write;
}

void QuietPlatform::UseThreadsOwn()
{
    Replace("GetLastError", Address(LastErrorOfThread));
    Replace("_time64", Address(TimeOfThread));
    Replace("_localtime64", Address(LocalTimeOfThread));
}

void QuietPlatform::Replace(const std::string& name, void* function)
{
    const auto found = imports_.find(name);
    if (found == imports_.end())
        throw std::runtime_error("Kestro.dll does not import " + name);
    originals_.emplace_back(found->second, *found->second.slot);
    Redirect(found->second, function);
}

} // namespace kestro::test
