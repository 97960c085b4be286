// reflected_path.cpp - where an INF's directories are in an installed Windows.
#include "reflected_path.h"

#include <utility>

namespace kestro::servicing {

namespace {

constexpr char kWindows[] = "Windows\\";
constexpr std::uint32_t kStays = 13; // in the package's folder

// Directories by the codes that INFs name them with. What has no place of its own before Windows
// starts, such as a user's folders, is not here.
const char* DirectoryOf(std::uint32_t code)
{
    switch (code) {
    case 10:
    case 16420:
        return "Windows";
    case 11:
    case 16421:
        return "Windows\\System32";
    case 12:
        return "Windows\\System32\\drivers";
    case 17:
        return "Windows\\INF";
    case 18:
        return "Windows\\Help";
    case 20:
        return "Windows\\Fonts";
    case 21:
        return "Windows\\System32\\viewers";
    case 23:
        return "Windows\\System32\\spool\\drivers\\color";
    case 24:
    case 30:
        return "";
    case 50:
        return "Windows\\system";
    case 51:
        return "Windows\\System32\\spool";
    case 52:
        return "Windows\\System32\\spool\\drivers";
    case 55:
        return "Windows\\System32\\spool\\prtprocs";
    case 16419:
        return "ProgramData";
    case 16422:
        return "Program Files";
    case 16425:
        return "Windows\\SysWOW64";
    case 16426:
        return "Program Files (x86)";
    case 16427:
        return "Program Files\\Common Files";
    case 16428:
        return "Program Files (x86)\\Common Files";
    default:
        return nullptr;
    }
}

std::string Joined(const std::string& folder, const std::string& path)
{
    return folder.empty() || path.empty() ? folder + path : folder + "\\" + path;
}

} // namespace

bool HasPlace(const DirectoryPath& place)
{
    return place.directory == kStays || DirectoryOf(place.directory) != nullptr;
}

DirectoryPath OnArchitecture(const DirectoryPath& place, Architecture architecture)
{
    constexpr std::pair<std::uint32_t, std::uint32_t> usual[] = {
        {16425, 11}, {16426, 16422}, {16428, 16427}};
    if (architecture == Architecture::X86 || architecture == Architecture::Arm)
        for (const auto& [of32Bit, directory] : usual)
            if (place.directory == of32Bit)
                return {directory, place.path};
    return place;
}

std::string PathOnDrive(const DirectoryPath& place, const std::string& folder)
{
    if (place.directory == kStays)
        return Joined("Windows\\System32\\DriverStore\\FileRepository\\" + folder, place.path);
    const char* const directory = DirectoryOf(place.directory);
    return directory ? Joined(directory, place.path) : std::string();
}

std::string WithSystemRoot(const std::string& pathOnDrive, char separator)
{
    std::string path = pathOnDrive.starts_with(kWindows)
                           ? "%SystemRoot%\\" + pathOnDrive.substr(sizeof kWindows - 1)
                           : "%SystemDrive%\\" + pathOnDrive;
    for (char& c : path)
        if (c == '\\')
            c = separator;
    return path;
}

std::string ImagePathOf(const ServiceInstall& service, const std::string& folder)
{
    const std::string path = PathOnDrive(service.binary, folder);
    if (path.empty())
        return service.binary.path;
    if (!IsKernelDriver(service))
        return WithSystemRoot(path, '\\');
    if (!path.starts_with(kWindows))
        return "\\??\\%SystemDrive%\\" + path;
    // The loader, which reads what starts with the boot, knows no \SystemRoot.
    const bool atBoot = service.start == 0;
    return (atBoot ? "" : "\\SystemRoot\\") + path.substr(sizeof kWindows - 1);
}

} // namespace kestro::servicing
