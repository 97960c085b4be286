// library_bench.cpp - what Kestro.dll itself costs, against a floor that makes the same platform calls
// with texts made beforehand. Prints tables, and with a path as argument writes JSON too.
#include "growth.h"
#include "measure.h"
#include "own_cost.h"
#include "support/import_table.h"

#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string>

namespace {

using namespace kestro::bench;

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

bool Save(const nlohmann::json& result, const wchar_t* path)
{
    FILE* const file = _wfopen(path, L"wb");
    if (file == nullptr) {
        std::fprintf(stderr, "library_bench: cannot write the JSON file\n");
        return false;
    }
    const std::string text = result.dump(2) + "\n";
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);
    return true;
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
    const std::wstring file =
        std::wstring(folder) + L"kestro-bench-" + std::to_wstring(GetCurrentProcessId()) + L".ini";

    nlohmann::json result;
    try {
        result["own_cost"] = MeasureOwnCost(quick, file);
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "library_bench: %s\n", error.what());
        return 1;
    }
    result["growth"] = MeasureGrowth(quick, std::string(file.begin(), file.end()));
    result["size_and_load"] = SizeAndLoad(argv[1], argv[2], quick);
    DeleteFileW(file.c_str());
    return json == nullptr || Save(result, json) ? 0 : 1;
}
