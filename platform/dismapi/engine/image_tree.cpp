// image_tree.cpp - finds files of an offline Windows tree as Windows would: without regard to case.
#include "image_tree.h"

#include "servicing_error.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <vector>

namespace fs = std::filesystem;

namespace kestro::servicing {

static char Lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string LowerCase(std::string_view text)
{
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
    return lower;
}

bool EqualNames(std::string_view left, std::string_view right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return Lower(a) == Lower(b); });
}

static std::vector<std::string_view> PartsOf(std::string_view relative)
{
    std::vector<std::string_view> parts;
    while (!relative.empty()) {
        const auto slash = relative.find('/');
        const auto part = relative.substr(0, slash);
        if (!part.empty())
            parts.push_back(part);
        relative = slash == std::string_view::npos ? "" : relative.substr(slash + 1);
    }
    return parts;
}

// The entry of `folder` with that name; the exact spelling wins over another one.
static std::optional<fs::path> FindEntry(const fs::path& folder, std::string_view name)
{
    std::error_code ignored;
    const auto exact = folder / name;
    if (fs::symlink_status(exact, ignored).type() != fs::file_type::not_found)
        return exact;
    for (fs::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored))
        if (EqualNames(entry->path().filename().native(), name))
            return entry->path();
    return std::nullopt;
}

std::optional<fs::path> FindPath(const fs::path& folder, std::string_view relative)
{
    std::optional<fs::path> found = folder;
    for (const auto part : PartsOf(relative)) {
        found = FindEntry(*found, part);
        if (!found)
            return std::nullopt;
    }
    std::error_code ignored;
    return fs::exists(*found, ignored) ? found : std::nullopt;
}

fs::path PathInImage(const fs::path& root, std::string_view relative)
{
    fs::path path = root;
    for (const auto part : PartsOf(relative)) {
        const auto found = FindEntry(path, part);
        path = found ? *found : path / part;
        std::error_code ignored;
        if (found && fs::is_symlink(*found, ignored))
            throw ServicingError(code::access_denied,
                                 path.string() +
                                     " is a symbolic link and may lead out of the image");
    }
    return path;
}

// The machine field of a PE file's header, 0 if it is none.
static std::uint16_t MachineOf(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::array<unsigned char, 0x40> dos{};
    std::array<unsigned char, 6> header{};
    if (!in.read(reinterpret_cast<char*>(dos.data()), dos.size()) || dos[0] != 'M' || dos[1] != 'Z')
        return 0;
    in.seekg(dos[0x3C] | dos[0x3D] << 8 | dos[0x3E] << 16 | dos[0x3F] << 24);
    if (!in.read(reinterpret_cast<char*>(header.data()), header.size()) || header[0] != 'P' ||
        header[1] != 'E')
        return 0;
    return static_cast<std::uint16_t>(header[4] | header[5] << 8);
}

Architecture ImageArchitecture(const fs::path& root)
{
    for (const char* name : {"ntoskrnl.exe", "ntdll.dll", "kernel32.dll"}) {
        const auto file = FindPath(root, std::string("Windows/System32/") + name);
        switch (file ? MachineOf(*file) : 0) {
        case 0x014C:
            return Architecture::X86;
        case 0x8664:
            return Architecture::Amd64;
        case 0x01C4:
            return Architecture::Arm;
        case 0xAA64:
            return Architecture::Arm64;
        default:
            break;
        }
    }
    return Architecture::Amd64;
}

const char* ArchitectureName(Architecture architecture)
{
    switch (architecture) {
    case Architecture::X86:
        return "x86";
    case Architecture::Arm:
        return "arm";
    case Architecture::Arm64:
        return "arm64";
    case Architecture::Amd64:
        break;
    }
    return "amd64";
}

} // namespace kestro::servicing
