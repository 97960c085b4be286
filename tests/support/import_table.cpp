// import_table.cpp - reads and changes the import address table of a loaded DLL.
#include "support/import_table.h"

#include <algorithm>
#include <cctype>
#include <cstdint>

namespace kestro::test {

namespace {

template <typename T>
T* At(HMODULE module, uint64_t offset)
{
    return reinterpret_cast<T*>(reinterpret_cast<char*>(module) + offset);
}

std::string NameOf(HMODULE module, const IMAGE_THUNK_DATA64& thunk)
{
    if (IMAGE_SNAP_BY_ORDINAL64(thunk.u1.Ordinal))
        return '#' + std::to_string(IMAGE_ORDINAL64(thunk.u1.Ordinal));
    return reinterpret_cast<const char*>(
        At<IMAGE_IMPORT_BY_NAME>(module, thunk.u1.AddressOfData)->Name);
}

} // namespace

std::vector<Import> ImportsOf(HMODULE module)
{
    const auto* dos = At<IMAGE_DOS_HEADER>(module, 0);
    const auto* headers = At<IMAGE_NT_HEADERS64>(module, static_cast<uint64_t>(dos->e_lfanew));
    const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];

    std::vector<Import> imports;
    const auto* descriptor = At<IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress);
    for (; descriptor->Name; ++descriptor) {
        std::string dll = At<char>(module, descriptor->Name);
        std::transform(dll.begin(), dll.end(), dll.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        const auto* names = At<IMAGE_THUNK_DATA64>(module, descriptor->OriginalFirstThunk);
        auto** slots = At<void*>(module, descriptor->FirstThunk);
        for (size_t i = 0; names[i].u1.AddressOfData; ++i)
            imports.push_back({dll, NameOf(module, names[i]), &slots[i]});
    }
    return imports;
}

void Redirect(const Import& import, void* function)
{
    DWORD protection = 0;
    VirtualProtect(import.slot, sizeof(void*), PAGE_READWRITE, &protection);
    *import.slot = function;
    VirtualProtect(import.slot, sizeof(void*), protection, &protection);
}

} // namespace kestro::test
