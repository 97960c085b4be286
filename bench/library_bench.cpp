// library_bench.cpp - what Kestro.dll itself costs, against a floor that makes the same platform calls
// with texts made beforehand. Prints tables, and with a path as argument writes JSON too.
#include "floor.h"
#include "kestro.h"
#include "support/import_table.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <dismapi.h>
#include <nlohmann/json.hpp>

namespace {

using kestro::test::Import;

// --- the platform behind the library ------------------------------------------------------------

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

std::tm g_noon = {};

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

// --- recording one call of an export ------------------------------------------------------------

struct Recording {
    std::vector<Call> calls;
    std::deque<std::string> narrow;
    std::deque<std::wstring> wide;
    int lines = 0; // of section Log
    int steps = 0; // writes to a step's section
    int conversions = 0;
    int writes = 0;

    const char* Keep(const char* text)
    {
        return text ? narrow.emplace_back(text).c_str() : nullptr;
    }
    const wchar_t* Keep(const wchar_t* text)
    {
        return text ? wide.emplace_back(text).c_str() : nullptr;
    }
    void CountWrite(bool log, bool righe, bool status)
    {
        ++writes;
        lines += log && !righe;
        steps += !log && !status;
    }
};

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

// The library's imports lead here for as long as this lives.
class Redirected {
  public:
    explicit Redirected(const std::map<std::string, void*>& functions)
    {
        for (const Import& import : kestro::test::ImportsOf(GetModuleHandleW(L"Kestro.dll")))
            if (const auto found = functions.find(import.name); found != functions.end()) {
                originals_.push_back({import, *import.slot});
                Redirect(import, found->second);
            }
    }
    ~Redirected()
    {
        for (const auto& [import, function] : originals_)
            Redirect(import, function);
    }
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

  private:
    std::vector<std::pair<Import, void*>> originals_;
};

std::map<std::string, void*> WithService(std::map<std::string, void*> functions, void* service,
                                         void* list)
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

std::map<std::string, void*> RecordingFunctions()
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

// Conversions stay the system's own: their results are needed.
std::map<std::string, void*> EmptyFunctions()
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

// --- measuring ------------------------------------------------------------------------------------

double Microseconds()
{
    static const double frequency = [] {
        LARGE_INTEGER ticks;
        QueryPerformanceFrequency(&ticks);
        return static_cast<double>(ticks.QuadPart);
    }();
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) * 1e6 / frequency;
}

struct Spread {
    double low, median, high; // the quartiles
};

Spread SpreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return {values[n / 4], values[n / 2], values[n * 3 / 4]};
}

// Runs both sides in turn, and after each round forgets the file they wrote.
struct Comparison {
    Spread library, floor, ratio;
};

Comparison Compare(const std::function<void()>& library, const std::function<void()>& floor,
                   const std::function<void()>& reset, int rounds, int repeats)
{
    std::vector<double> left, right, ratio;
    const auto time = [&](const std::function<void()>& side) {
        reset();
        const double start = Microseconds();
        for (int i = 0; i < repeats; ++i)
            side();
        return (Microseconds() - start) / repeats;
    };
    time(library), time(floor);
    for (int i = 0; i < rounds; ++i) {
        const bool first = i % 2 == 0;
        const double a = time(first ? library : floor);
        const double b = time(first ? floor : library);
        left.push_back(first ? a : b);
        right.push_back(first ? b : a);
        ratio.push_back(left.back() / right.back());
    }
    return {SpreadOf(left), SpreadOf(right), SpreadOf(ratio)};
}

// --- the exports -----------------------------------------------------------------------------------

const wchar_t kImage[] = L"C:\\images\\install.wim";
const wchar_t kMount[] = L"C:\\mount";
const wchar_t kLog[] = L"C:\\logs\\dism.log";
const wchar_t kInf[] = L"C:\\drivers\\network adapter\\net.inf";
const wchar_t* const kInfs[8] = {kInf, kInf, kInf, kInf, kInf, kInf, kInf, kInf};
std::string g_file;
std::wstring g_fileW;

struct Export {
    const char* name;
    std::function<void()> call;
};

std::vector<Export> Exports()
{
    const auto narrow = [] { return g_file.c_str(); };
    const auto wide = [] { return g_fileW.c_str(); };
    return {
        {"MountWimImage", [=] { MountWimImage(kImage, kMount, kLog, narrow()); }},
        {"MountWimImageW", [=] { MountWimImageW(kImage, kMount, kLog, wide()); }},
        {"UnmountWimImage", [=] { UnmountWimImage(kMount, 0, kLog, narrow()); }},
        {"UnmountWimImageW", [=] { UnmountWimImageW(kMount, 0, kLog, wide()); }},
        {"AddDriver", [=] { AddDriver(kMount, kInf, kLog, narrow()); }},
        {"AddDriverW", [=] { AddDriverW(kMount, kInf, kLog, wide()); }},
        {"RemoveDriver", [=] { RemoveDriver(kMount, kInf, kLog, narrow()); }},
        {"RemoveDriverW", [=] { RemoveDriverW(kMount, kInf, kLog, wide()); }},
        {"AddDriverList", [=] { AddDriverList(kMount, kInfs, kLog, narrow()); }},
        {"AddDriverListW", [=] { AddDriverListW(kMount, kInfs, kLog, wide()); }},
        {"GetDrivers", [=] { GetDrivers(kMount, kLog, narrow()); }},
        {"GetDriversW", [=] { GetDriversW(kMount, kLog, wide()); }},
        {"GetDriverInfo", [=] { GetDriverInfo(kMount, kInf, kLog, narrow()); }},
        {"GetDriverInfoW", [=] { GetDriverInfoW(kMount, kInf, kLog, wide()); }},
        {"WriteTest", [=] { WriteTest(narrow()); }},
        {"WriteTestW", [=] { WriteTestW(wide()); }},
    };
}

Recording RecordCall(const Export& operation)
{
    Recording recording;
    g_recording = &recording;
    const Redirected redirected(RecordingFunctions());
    operation.call();
    return recording;
}

long long CountAllocations(const Export& operation)
{
    auto functions = EmptyFunctions();
    functions["malloc"] = Address(CountedMalloc);
    const Redirected redirected(functions);
    operation.call();
    g_allocations = 0;
    operation.call();
    return g_allocations;
}

nlohmann::json JsonOf(const Spread& spread)
{
    return {{"low", spread.low}, {"median", spread.median}, {"high", spread.high}};
}

nlohmann::json OwnCost(bool quick)
{
    std::printf(
        "\nOwn cost: the library against a floor that makes the same platform calls\n\n"
        "                     -- real profile writer --      -- empty platform and writer --\n"
        "export               ratio   (quartiles)            own us  lines  steps  us/line*  "
        "mallocs  conversions\n");
    nlohmann::json rows = nlohmann::json::array();
    MakePackages(10);
    for (const Export& operation : Exports()) {
        const Recording recording = RecordCall(operation);
        const auto reset = [] { DeleteFileW(g_fileW.c_str()); };
        const auto replay = [&](const Platform& platform) {
            return [&recording, platform] {
                ReplayCalls(&platform, recording.calls.data(), recording.calls.size());
            };
        };
        Comparison real;
        {
            const Redirected redirected(WithService({}, Address(NoService), Address(ListPackages)));
            real = Compare(operation.call, replay(RealWriterPlatform()), reset, quick ? 9 : 41, 10);
        }
        Comparison empty;
        {
            const Redirected redirected(EmptyFunctions());
            empty = Compare(
                operation.call, replay(EmptyPlatform()), [] {}, quick ? 9 : 41, 300);
        }
        const double own = empty.library.median - empty.floor.median;
        // A step write is allowed twice what a log line is.
        const double units = recording.lines + 2.0 * recording.steps;
        const long long mallocs = CountAllocations(operation);
        std::printf("%-20s %6.3f  (%.3f to %.3f)      %10.2f %6d %6d %9.3f %8lld %12d\n",
                    operation.name, real.ratio.median, real.ratio.low, real.ratio.high, own,
                    recording.lines, recording.steps, units > 0 ? own / units : own, mallocs,
                    recording.conversions);
        rows.push_back({{"export", operation.name},
                        {"ratio_real_writer", JsonOf(real.ratio)},
                        {"library_us_real_writer", JsonOf(real.library)},
                        {"floor_us_real_writer", JsonOf(real.floor)},
                        {"library_us_empty", JsonOf(empty.library)},
                        {"floor_us_empty", JsonOf(empty.floor)},
                        {"own_us", own},
                        {"lines", recording.lines},
                        {"steps", recording.steps},
                        {"mallocs", mallocs},
                        {"conversions", recording.conversions}});
    }
    std::printf("* a step write counts as two lines; the goal is at most 1.000\n");
    return rows;
}

nlohmann::json Growth(bool quick)
{
    std::printf("\nGrowth: GetDrivers with more and more packages\n\n"
                "packages   own us/package   real writer: us/package   bytes of ResultFile\n");
    nlohmann::json rows = nlohmann::json::array();
    const Export listing = {"GetDrivers", [] { GetDrivers(kMount, kLog, g_file.c_str()); }};
    for (const UINT count : {10u, 100u, 1000u, 10000u}) {
        MakePackages(count);
        const Recording recording = RecordCall(listing);
        Comparison empty;
        {
            const Platform platform = EmptyPlatform();
            const Redirected redirected(EmptyFunctions());
            empty = Compare(
                listing.call,
                [&] { ReplayCalls(&platform, recording.calls.data(), recording.calls.size()); },
                [] {}, quick ? 5 : 15, count >= 1000 ? 2 : 50);
        }
        const double own = (empty.library.median - empty.floor.median) / count;
        // The writer rewrites the file for every key, so 10,000 packages would take an hour.
        double real = 0;
        unsigned bytes = 0;
        if (count <= (quick ? 100u : 1000u)) {
            const Redirected redirected(WithService({}, Address(NoService), Address(ListPackages)));
            DeleteFileW(g_fileW.c_str());
            const double start = Microseconds();
            listing.call();
            real = (Microseconds() - start) / count;
            WIN32_FILE_ATTRIBUTE_DATA data = {};
            GetFileAttributesExW(g_fileW.c_str(), GetFileExInfoStandard, &data);
            bytes = data.nFileSizeLow;
        }
        if (real > 0)
            std::printf("%8u %16.3f %25.1f %21u\n", count, own, real, bytes);
        else
            std::printf("%8u %16.3f %25s %21s\n", count, own, "not run", "-");
        rows.push_back({{"packages", count},
                        {"own_us_per_package", own},
                        {"real_us_per_package", real},
                        {"bytes", bytes}});
    }
    return rows;
}

nlohmann::json SizeAndLoad(const wchar_t* library, const wchar_t* empty, bool quick)
{
    const auto load = [](const wchar_t* path) {
        return [path] {
            if (const HMODULE module = LoadLibraryW(path))
                FreeLibrary(module);
        };
    };
    const Comparison times = Compare(
        load(library), load(empty), [] {}, quick ? 9 : 41, 3);
    const HMODULE module = GetModuleHandleW(L"Kestro.dll");
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    GetFileAttributesExW(library, GetFileExInfoStandard, &data);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(module);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
        reinterpret_cast<const char*>(module) + dos->e_lfanew);
    const auto relocations =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_BASERELOC].Size;
    const size_t imports = kestro::test::ImportsOf(module).size();
    std::printf("\nSize and load\n\n"
                "Kestro.dll: %lu bytes, %lu bytes of relocations, %zu imports\n"
                "LoadLibrary and FreeLibrary: %.0f us, an empty DLL %.0f us, ratio %.2f\n",
                data.nFileSizeLow, relocations, imports, times.library.median, times.floor.median,
                times.ratio.median);
    return {{"bytes", data.nFileSizeLow},
            {"relocation_bytes", relocations},
            {"imports", imports},
            {"load_us", JsonOf(times.library)},
            {"empty_load_us", JsonOf(times.floor)},
            {"ratio", JsonOf(times.ratio)}};
}

} // namespace

// library_bench COPY_OF_KESTRO_DLL EMPTY_DLL [--quick] [JSON]
int wmain(int argc, wchar_t** argv)
{
    if (argc < 3) {
        std::fputs("usage: library_bench COPY_OF_KESTRO_DLL EMPTY_DLL [--quick] [JSON]\n", stderr);
        return 2;
    }
    const bool quick = argc > 3 && std::wcscmp(argv[3], L"--quick") == 0;
    const wchar_t* const json = argc > 3 + quick ? argv[3 + quick] : nullptr;

    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    g_fileW =
        std::wstring(folder) + L"kestro-bench-" + std::to_wstring(GetCurrentProcessId()) + L".ini";
    g_file.assign(g_fileW.begin(), g_fileW.end());
    g_noon.tm_mday = 5;
    g_noon.tm_year = 121;
    for (const Import& import : kestro::test::ImportsOf(GetModuleHandleW(L"Kestro.dll")))
        if (import.name == "malloc")
            g_malloc = reinterpret_cast<void* (*)(size_t)>(*import.slot);

    nlohmann::json result;
    result["own_cost"] = OwnCost(quick);
    result["growth"] = Growth(quick);
    result["size_and_load"] = SizeAndLoad(argv[1], argv[2], quick);
    DeleteFileW(g_fileW.c_str());

    if (json != nullptr) {
        FILE* const file = _wfopen(json, L"wb");
        if (file == nullptr) {
            std::fprintf(stderr, "library_bench: cannot write the JSON file\n");
            return 1;
        }
        const std::string text = result.dump(2) + "\n";
        std::fwrite(text.data(), 1, text.size(), file);
        std::fclose(file);
    }
    return 0;
}
