// library_bench.cpp - what Kestro.dll itself costs, against a floor that makes the same platform calls
// with texts made beforehand. Prints tables, and with a path as argument writes JSON too.
#include "growth.h"
#include "kestro.h"
#include "measure.h"
#include "platform_calls.h"

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using namespace kestro::bench;

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

nlohmann::json OwnCost(bool quick)
{
    std::printf(
        "\nOwn cost: the library against a floor that makes the same platform calls\n\n"
        "                 -- real profile writer, ratio --   -- empty platform and writer --\n"
        "export           measured  (quartiles)      by own  own us  lines  steps  us/line*  "
        "mallocs  conversions\n");
    nlohmann::json rows = nlohmann::json::array();
    MakePackages(10);
    for (const Export& operation : Exports()) {
        const Recording recording = RecordCall(operation.call);
        const auto reset = [] { DeleteFileW(g_fileW.c_str()); };
        const auto replay = [&](const Platform& platform) {
            return [&recording, platform] {
                ReplayCalls(&platform, recording.calls.data(), recording.calls.size());
            };
        };
        Comparison real;
        {
            const Redirected redirected(RealWriterFunctions());
            real = Compare(operation.call, replay(RealWriterPlatform()), reset, quick ? 9 : 401, 1);
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
        const long long mallocs = CountAllocations(operation.call);
        // What the ratio is where other work on the machine does not blur it.
        const double byOwn = 1 + own / real.floor.median;
        std::printf("%-16s %8.3f  (%.3f to %.3f) %7.4f %7.2f %6d %6d %9.3f %8lld %12d\n",
                    operation.name, real.ratio.median, real.ratio.low, real.ratio.high, byOwn, own,
                    recording.lines, recording.steps, units > 0 ? own / units : own, mallocs,
                    recording.conversions);
        rows.push_back({{"export", operation.name},
                        {"ratio_real_writer", JsonOf(real.ratio)},
                        {"library_us_real_writer", JsonOf(real.library)},
                        {"floor_us_real_writer", JsonOf(real.floor)},
                        {"library_us_empty", JsonOf(empty.library)},
                        {"floor_us_empty", JsonOf(empty.floor)},
                        {"ratio_by_own_cost", byOwn},
                        {"own_us", own},
                        {"own_us_per_line", units > 0 ? own / units : own},
                        {"lines", recording.lines},
                        {"steps", recording.steps},
                        {"mallocs", mallocs},
                        {"conversions", recording.conversions}});
    }
    std::printf("* a step write counts as two lines; the goal is at most 1.000\n"
                "by own: 1 + own us / the floor's time with the real writer\n");
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

    nlohmann::json result;
    result["own_cost"] = OwnCost(quick);
    result["growth"] = MeasureGrowth(quick, g_file);
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
