// image_file.cpp - reads the tables of a PE file without loading it.
#include "surface/image_file.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace kestro::test {

ImageFile::ImageFile(const std::wstring& path)
{
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    if (bytes_.size() < 1024 || Headers().Signature != IMAGE_NT_SIGNATURE)
        throw std::runtime_error("no PE file");
}

const IMAGE_NT_HEADERS64& ImageFile::Headers() const
{
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(bytes_.data());
    return *reinterpret_cast<const IMAGE_NT_HEADERS64*>(bytes_.data() + dos->e_lfanew);
}

std::vector<IMAGE_SECTION_HEADER> ImageFile::Sections() const
{
    const auto* first = IMAGE_FIRST_SECTION(const_cast<IMAGE_NT_HEADERS64*>(&Headers()));
    return {first, first + Headers().FileHeader.NumberOfSections};
}

const char* ImageFile::At(uint32_t address) const
{
    for (const IMAGE_SECTION_HEADER& section : Sections())
        if (address >= section.VirtualAddress &&
            address < section.VirtualAddress + section.SizeOfRawData)
            return bytes_.data() + section.PointerToRawData + (address - section.VirtualAddress);
    throw std::runtime_error("address outside the file");
}

std::vector<std::string> ImageFile::Exports() const
{
    const auto& directory = Headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    const auto* table = TableAt<IMAGE_EXPORT_DIRECTORY>(directory.VirtualAddress);
    const auto* names = TableAt<uint32_t>(table->AddressOfNames);
    std::vector<std::string> exports;
    for (uint32_t i = 0; i < table->NumberOfNames; ++i)
        exports.emplace_back(At(names[i]));
    for (uint32_t i = table->NumberOfNames; i < table->NumberOfFunctions; ++i)
        exports.push_back('#' + std::to_string(i));
    return exports;
}

std::vector<std::string> ImageFile::Imports() const
{
    const auto& directory = Headers().OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    std::vector<std::string> imports;
    const auto* dll = TableAt<IMAGE_IMPORT_DESCRIPTOR>(directory.VirtualAddress);
    for (; dll->Name; ++dll) {
        std::string name = At(dll->Name);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        const auto* thunk = TableAt<IMAGE_THUNK_DATA64>(dll->OriginalFirstThunk);
        for (; thunk->u1.AddressOfData; ++thunk)
            imports.push_back(
                name + ' ' +
                (IMAGE_SNAP_BY_ORDINAL64(thunk->u1.Ordinal)
                     ? '#' + std::to_string(IMAGE_ORDINAL64(thunk->u1.Ordinal))
                     : std::string(At(static_cast<uint32_t>(thunk->u1.AddressOfData) + 2))));
    }
    std::sort(imports.begin(), imports.end());
    return imports;
}

} // namespace kestro::test
