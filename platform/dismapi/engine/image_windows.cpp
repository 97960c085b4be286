// image_windows.cpp - which Windows an offline image holds.
#include "image_windows.h"

#include "file_system.h"
#include "hive_file.h"
#include "inf_number.h"
#include "pe_version.h"
#include "servicing_error.h"

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace fs = std::filesystem;

namespace kestro::servicing {
namespace {

// Values of a hive; empty for what is not there.
class Registry {
  public:
    explicit Registry(const fs::path& file) : hive_(file) {}

    HiveFile::Key Find(const std::string& path) const { return hive_.Find(path); }
    std::string Text(const std::string& path, const std::string& name) const
    {
        const auto value = hive_.Value(Find(path), name);
        return value ? TextOf(*value) : std::string();
    }
    std::optional<std::uint32_t> Number(HiveFile::Key key, const std::string& name) const
    {
        const auto value = hive_.Value(key, name);
        return value && value->data.size() == 4 ? std::optional(NumberOf(*value)) : std::nullopt;
    }
    std::vector<std::string> Texts(const std::string& path, const std::string& name) const
    {
        const auto value = hive_.Value(Find(path), name);
        return value ? TextsOf(*value) : std::vector<std::string>();
    }
    std::vector<std::pair<std::string, HiveFile::Key>> Children(const std::string& path) const
    {
        std::vector<std::pair<std::string, HiveFile::Key>> children;
        for (const auto child : hive_.Children(Find(path)))
            children.emplace_back(hive_.Name(child), child);
        return children;
    }

  private:
    HiveFile hive_;
};

unsigned ProductType(const std::string& name)
{
    if (EqualNames(name, "WinNT"))
        return 1;
    if (EqualNames(name, "LanmanNT"))
        return 2;
    return EqualNames(name, "ServerNT") ? 3 : 0;
}

unsigned SuiteMask(const std::vector<std::string>& names)
{
    constexpr std::pair<const char*, unsigned> suites[] = {
        {"Small Business", 0x1},    {"Enterprise", 0x2},
        {"BackOffice", 0x4},        {"CommunicationServer", 0x8},
        {"Terminal Server", 0x10},  {"Small Business(Restricted)", 0x20},
        {"EmbeddedNT", 0x40},       {"DataCenter", 0x80},
        {"Personal", 0x200},        {"Blade", 0x400},
        {"Storage Server", 0x2000}, {"Compute Server", 0x4000},
    };
    unsigned mask = 0;
    for (const auto& name : names)
        for (const auto& [suite, bit] : suites)
            if (EqualNames(name, suite))
                mask |= bit;
    return mask;
}

void ReadVersion(const Registry& software, ImageWindows& windows)
{
    const std::string path = "Microsoft\\Windows NT\\CurrentVersion";
    windows.build = static_cast<unsigned>(InfNumber(software.Text(path, "CurrentBuildNumber")));
    // Windows 10 and later have numbers; their text stays that of Windows 8.1.
    if (const auto major = software.Number(software.Find(path), "CurrentMajorVersionNumber")) {
        windows.major = *major;
        windows.minor =
            software.Number(software.Find(path), "CurrentMinorVersionNumber").value_or(0);
        return;
    }
    std::sscanf(software.Text(path, "CurrentVersion").c_str(), "%u.%u", &windows.major,
                &windows.minor);
}

void ReadKernelVersion(const fs::path& root, ImageWindows& windows)
{
    const auto kernel = FindPath(root, "Windows/System32/ntoskrnl.exe");
    const auto version = kernel ? VersionOfProgram(ReadWholeFile(*kernel)) : std::nullopt;
    if (version) {
        windows.major = (*version)[0];
        windows.minor = (*version)[1];
        windows.build = (*version)[2];
    }
}

// The registry's CurrentControlSet is made when Windows starts; the file has numbered ones.
std::string ControlSet(const Registry& system)
{
    const auto current = system.Number(system.Find("Select"), "Current").value_or(1);
    char name[32];
    std::snprintf(name, sizeof name, "ControlSet%03u", current);
    return name;
}

void ReadSystem(const Registry& system, ImageWindows& windows)
{
    const std::string control = ControlSet(system) + "\\Control\\";
    const std::string options = control + "ProductOptions";
    windows.productType = ProductType(system.Text(options, "ProductType"));
    windows.suiteMask = SuiteMask(system.Texts(options, "ProductSuite"));
    windows.language = static_cast<unsigned>(std::strtoul(
        system.Text(control + "Nls\\Language", "InstallLanguage").c_str(), nullptr, 16));
    for (const auto& [name, key] : system.Children(control + "Class")) {
        const auto critical = system.Number(key, "BootCritical");
        auto& known = windows.classes[LowerCase(name)];
        if (critical)
            known = *critical ? ImageWindows::BootCritical::Yes : ImageWindows::BootCritical::No;
    }
    if (system.Find("DriverDatabase"))
        windows.hasDriverDatabase = true;
}

// Classes that Windows needs before its system disk is there, and those whose packages it puts with
// them: disks, their controllers, the buses that these hang on, the keyboard.
bool IsBootClass(const std::string& guid)
{
    for (const char* boot : {
             "{36fc9e60-c465-11cf-8056-444553540000}", // USB
             "{4d36e967-e325-11ce-bfc1-08002be10318}", // DiskDrive
             "{4d36e96a-e325-11ce-bfc1-08002be10318}", // HDC
             "{4d36e96b-e325-11ce-bfc1-08002be10318}", // Keyboard
             "{4d36e97b-e325-11ce-bfc1-08002be10318}", // SCSIAdapter
             "{4d36e97d-e325-11ce-bfc1-08002be10318}", // System
             "{71a27cdd-812a-11d0-bec7-08002be2092f}", // Volume
             "{745a17a0-74d3-11d0-b6fe-00a0c90f57da}", // HIDClass
             "{88bae032-5a81-49f0-bc3d-a4ff138216d6}", // USBDevice
             "{a0a588a4-c46f-4b37-b7ea-c82fe89870c6}", // SDHost
             "{e2f84ce7-8efa-411c-aa69-97454ca4cb57}", // Extension
         })
        if (guid == boot)
            return true;
    return false;
}

} // namespace

bool ImageWindows::IsBootCritical(const std::string& classGuid) const
{
    const std::string guid = LowerCase(classGuid);
    const auto known = classes.find(guid);
    // A class that Windows does not know yet waits until its devices are there.
    if (known == classes.end())
        return classes.empty() && IsBootClass(guid);
    return known->second == BootCritical::Unset ? IsBootClass(guid)
                                                : known->second == BootCritical::Yes;
}

ImageWindows ReadImageWindows(const fs::path& root)
{
    ImageWindows windows;
    windows.architecture = ImageArchitecture(root);
    const fs::path config = PathInImage(root, "Windows/System32/config");
    const auto hive = [&](const char* name) { return PathInImage(config, name); };
    windows.hasDriverDatabase = fs::exists(hive("DRIVERS"));
    if (fs::exists(hive("SYSTEM")))
        ReadSystem(Registry(hive("SYSTEM")), windows);
    if (fs::exists(hive("SOFTWARE")))
        ReadVersion(Registry(hive("SOFTWARE")), windows);
    if (windows.major == 0)
        ReadKernelVersion(root, windows);
    return windows;
}

} // namespace kestro::servicing
