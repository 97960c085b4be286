// image_file.h - a PE file as it lies on the disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>
#include <windows.h>

namespace kestro::test {

class ImageFile {
  public:
    explicit ImageFile(const std::wstring& path);

    size_t Size() const { return bytes_.size(); }
    const IMAGE_NT_HEADERS64& Headers() const;
    std::vector<IMAGE_SECTION_HEADER> Sections() const;
    // Names in the export table, sorted as the linker sorted them; "#n" for one without a name.
    std::vector<std::string> Exports() const;
    // "dll function" in lower case for the DLL, sorted.
    std::vector<std::string> Imports() const;

  private:
    // The bytes at an address of the loaded image.
    const char* At(uint32_t address) const;
    template <typename T>
    const T* TableAt(uint32_t address) const
    {
        return reinterpret_cast<const T*>(At(address));
    }

    std::vector<char> bytes_;
};

} // namespace kestro::test
