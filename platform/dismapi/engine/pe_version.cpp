// pe_version.cpp - the version that a Windows program's resources tell.
#include "pe_version.h"

namespace kestro::servicing {
namespace {

constexpr std::uint32_t kVersionResource = 16;
constexpr std::uint32_t kVersionSignature = 0xFEEF04BD;

// Reads zeros beyond the end.
class Program {
  public:
    explicit Program(std::string_view bytes) : bytes_(bytes) {}

    std::uint32_t Word(std::uint64_t at) const { return Number(at, 2); }
    std::uint32_t Long(std::uint64_t at) const { return Number(at, 4); }

    // Where the resources begin in the file; 0 if there are none.
    std::uint64_t Resources()
    {
        if (Word(0) != 0x5A4D || Long(Long(0x3C)) != 0x4550)
            return 0;
        const std::uint64_t header = Long(0x3C) + 4ull;
        const std::uint64_t optional = header + 20;
        // The optional header of a 64-bit program is 16 bytes longer before its directories.
        const std::uint64_t directories = optional + (Word(optional) == 0x20B ? 112 : 96);
        const std::uint32_t address = Long(directories + 2 * 8);
        std::uint64_t section = optional + Word(header + 16);
        for (std::uint32_t left = Word(header + 2); left > 0; --left, section += 40) {
            const std::uint32_t start = Long(section + 12);
            if (address >= start && address - start < Long(section + 16)) {
                difference_ = static_cast<std::int64_t>(Long(section + 20)) - start;
                return address == 0 ? 0 : Position(address);
            }
        }
        return 0;
    }
    // Where in the file an address of the resources' section lies.
    std::uint64_t Position(std::uint32_t address) const
    {
        return static_cast<std::uint64_t>(address + difference_);
    }

    // The place that the directory's entry names, the one with that id or else (0) its first; 0 if there
    // is none.
    std::uint64_t Entry(std::uint64_t resources, std::uint64_t directory, std::uint32_t id) const
    {
        const std::uint32_t count = Word(directory + 12) + Word(directory + 14);
        for (std::uint32_t i = 0; i < count; ++i)
            if (const auto entry = directory + 16 + 8ull * i; id == 0 || Long(entry) == id)
                return resources + (Long(entry + 4) & 0x7FFFFFFF);
        return 0;
    }

  private:
    std::uint32_t Number(std::uint64_t at, std::uint64_t bytes) const
    {
        std::uint32_t number = 0;
        for (std::uint64_t i = 0; i < bytes && at < bytes_.size() && i < bytes_.size() - at; ++i)
            number |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes_[at + i]))
                      << 8 * i;
        return number;
    }

    std::string_view bytes_;
    std::int64_t difference_ = 0;
};

} // namespace

// Resources are a tree of three levels: type, name, language.
std::optional<std::array<std::uint16_t, 4>> VersionOfProgram(std::string_view program)
{
    Program file(program);
    const auto resources = file.Resources();
    const auto names = resources ? file.Entry(resources, resources, kVersionResource) : 0;
    const auto languages = names ? file.Entry(resources, names, 0) : 0;
    const auto entry = languages ? file.Entry(resources, languages, 0) : 0;
    if (!entry)
        return std::nullopt;
    // Three numbers, the key "VS_VERSION_INFO" and two bytes that align stand before the record.
    const auto record = file.Position(file.Long(entry)) + 40;
    if (file.Long(record) != kVersionSignature)
        return std::nullopt;
    const auto part = [&](std::uint64_t at) {
        return static_cast<std::uint16_t>(file.Word(record + at));
    };
    return std::array{part(10), part(8), part(14), part(12)};
}

} // namespace kestro::servicing
