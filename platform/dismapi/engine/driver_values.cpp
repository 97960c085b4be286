// driver_values.cpp - values of the driver database that Windows derives.
#include "driver_values.h"

#include "reflected_path.h"
#include "signed_message.h"

#include <algorithm>

namespace kestro::servicing {

namespace {

// The first builds with what is named here. An image that does not tell its build counts as an old one.
constexpr unsigned kWithSignerName = 19044;  // Windows 10 21H2
constexpr unsigned kWithSignerLevel = 19044; // WHQL told from other signers of Microsoft
constexpr unsigned kWithFileSize = 20348;    // Windows Server 2022, Windows 11
constexpr unsigned kWithFullScope = 22621;   // Windows 11 22H2
constexpr unsigned kServer2025 = 26100;

} // namespace

bool HasFileSize(const ImageWindows& windows)
{
    return windows.build >= kWithFileSize;
}

bool HasDeviceSettings(const ImageWindows& windows)
{
    return windows.build < kServer2025;
}

bool HasLockLevel(const DriverEntry& entry)
{
    return entry.package->pnpLockdown && entry.windows->build >= kServer2025;
}

bool HasSubmissionId(const DriverEntry& entry)
{
    return !entry.submissionId.empty() && entry.windows->build >= kWithFileSize;
}

std::string SignerNameOf(const DriverEntry& entry)
{
    return entry.windows->build >= kWithSignerName ? entry.signer : "";
}

std::uint32_t SignerScoreOf(const DriverEntry& entry)
{
    const bool tells = entry.windows->build >= kWithSignerLevel;
    return entry.signerScore == score::whql && !tells ? score::unclassified : entry.signerScore;
}

bool HasCoInstaller(const DriverPackage& package)
{
    return std::any_of(package.configurations.begin(), package.configurations.end(),
                       [](const Configuration& one) { return one.hasCoInstaller; });
}

// What the bits mean is not known.
std::uint32_t StatusFlagsOf(const DriverEntry& entry)
{
    constexpr std::uint32_t usual = 0x12, withCoInstaller = 0x08, locked = 0x21;
    return usual | (HasCoInstaller(*entry.package) ? withCoInstaller : 0) |
           (HasLockLevel(entry) ? locked : 0);
}

std::uint32_t ConfigFlagsOf(const Configuration& configuration)
{
    constexpr std::uint32_t finishInstall = 0x400;
    return configuration.hasCoInstaller ? finishInstall : 0;
}

std::uint32_t ConfigScopeOf(const Configuration& configuration, const ImageWindows& windows)
{
    constexpr std::uint32_t all = 0xF7F, always = 0x5, hardware = 0x2, framework = 0x100;
    if (windows.build >= kWithFullScope)
        return all;
    return always | (configuration.hasHardware ? hardware : 0) |
           (configuration.hasWdf ? framework : 0);
}

std::vector<std::string> Win32ServicesOf(const Configuration& configuration,
                                         const ImageWindows& windows)
{
    std::vector<std::string> names;
    for (const auto& service : configuration.services)
        if (windows.build >= kServer2025 && IsWin32Service(service) &&
            !EqualNames(service.name, configuration.service))
            names.push_back(service.name);
    return names;
}

std::vector<std::string> SectionsOf(const DriverPackage& package)
{
    std::vector<std::string> sections;
    for (const auto& configuration : package.configurations)
        sections.push_back(configuration.section);
    return sections;
}

HiveValue PropertyText(const std::string& text)
{
    constexpr std::uint32_t propertyText = 0xFFFF0012;
    return {"", propertyText, TextValue("", text).data};
}

} // namespace kestro::servicing
