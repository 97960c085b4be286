// driver_reflection.cpp - installs a package's services and files in an offline image's registry.
#include "driver_reflection.h"

#include "reflected_path.h"
#include "registry_settings.h"
#include "service_tags.h"

#include <algorithm>
#include <set>

namespace kestro::servicing {

namespace {

// Flags of AddService.
constexpr std::uint32_t kTagToFront = 0x1;
// With these, a service that is there already keeps these of its values.
struct KeptValue {
    std::uint32_t flag;
    const char* name;
};
constexpr KeptValue kKept[] = {
    {0x8, "DisplayName"},      {0x10, "Start"},         {0x20, "ErrorControl"}, {0x40, "Group"},
    {0x80, "DependOnService"}, {0x80, "DependOnGroup"}, {0x100, "Description"}};
constexpr KeptValue kKeptDirectives[] = {
    {0x1000, "RequiredPrivileges"}, {0x2000, "AddTrigger"},      {0x4000, "ServiceSidType"},
    {0x8000, "DelayedAutoStart"},   {0x20000, "FailureActions"}, {0x40000, "BootFlags"}};
// And without this its security.
constexpr std::uint32_t kOverwritesSecurity = 0x400;

// Windows 10 and later have the framework themselves.
bool IsFrameworkInstaller(const std::string& name, const ImageWindows& windows)
{
    return windows.major >= 10 && LowerCase(name).starts_with("wdfcoinstaller");
}

// "@oem0.inf,%Name%;The name": Windows reads the text anew in the user's language.
std::string IndirectText(const TokenText& text, const std::string& published)
{
    return text.IsToken() ? "@" + published + "," + text.written + ";" + text.meaning
                          : text.meaning;
}

std::string KeyOfService(const std::string& service)
{
    return "Services\\" + service;
}

} // namespace

void AddOwner(HiveFile& hive, HiveFile::Key key, const std::string& published)
{
    const auto there = hive.Value(key, "Owners");
    std::vector<std::string> owners = there ? TextsOf(*there) : std::vector<std::string>();
    if (std::none_of(owners.begin(), owners.end(),
                     [&](const std::string& owner) { return EqualNames(owner, published); }))
        owners.push_back(published);
    hive.Set(key, {TextsValue("Owners", owners)});
}

std::vector<ReflectedFile> DriverReflection::FilesOf(const DriverEntry& entry)
{
    constexpr std::uint32_t staysInStore = 13;
    std::vector<ReflectedFile> files;
    std::set<std::string> known;
    for (const auto& configuration : entry.package->configurations)
        for (const auto& copy : configuration.copies) {
            if (!copy.inf.empty() || !HasPlace(copy.destination) || copy.target.empty() ||
                copy.destination.directory == staysInStore ||
                IsFrameworkInstaller(copy.target, *entry.windows))
                continue;
            const std::string folder = PathOnDrive(
                OnArchitecture(copy.destination, entry.windows->architecture), entry.folder);
            const std::string path = folder + (folder.empty() ? "" : "\\") + copy.target;
            if (known.insert(LowerCase(path)).second)
                files.push_back({copy.source, path, copy.flags});
        }
    return files;
}

HiveFile::Key DriverReflection::MakeInSet(const std::string& path)
{
    return hives_.System()->Make(hives_.ControlSet() + "\\" + path);
}

void DriverReflection::Write(const DriverEntry& entry, const std::vector<ReflectedFile>& files)
{
    // What an included INF of Windows installs is there.
    for (const auto& configuration : entry.package->configurations)
        for (const auto& service : configuration.services)
            if (service.inf.empty())
                WriteService(entry, service);
    // Also of a service that came with Windows; a key without its service would be left behind.
    HiveFile& system = *hives_.System();
    for (const auto& configuration : entry.package->configurations)
        for (const auto& framework : configuration.kmdfServices)
            if (const Key service =
                    system.Find(hives_.ControlSet() + "\\" + KeyOfService(framework.service)))
                system.Set(system.Make(service, "Parameters\\Wdf"),
                           {TextValue("KmdfLibraryVersion", framework.libraryVersion)});
    for (const auto& configuration : entry.package->configurations)
        leftOut_.insert(configuration.leftOut.begin(), configuration.leftOut.end());
    if (hives_.Software())
        for (const auto& file : files)
            WriteLockdown(entry, file);
}

// Packages of user-mode drivers say the framework's service, too. One that Windows has of its own accord has
// no owners and must not go with them.
bool DriverReflection::IsOwn(const DriverEntry& entry, const ServiceInstall& service) const
{
    const HiveFile& system = *hives_.System();
    const Key there = system.Find(hives_.ControlSet() + "\\" + KeyOfService(service.name));
    if (!there || !system.Value(there, "Type") || system.Value(there, "Owners"))
        return true;
    const std::string program = LowerCase(PathOnDrive(service.binary, entry.folder));
    const auto files = FilesOf(entry);
    return LowerCase(ImagePathOf(service, entry.folder)).find(LowerCase(entry.folder)) !=
               std::string::npos ||
           std::any_of(files.begin(), files.end(),
                       [&](const ReflectedFile& file) { return LowerCase(file.path) == program; });
}

void DriverReflection::WriteService(const DriverEntry& entry, const ServiceInstall& service)
{
    // A section that is missing says nothing of a service that may be there.
    if (service.type == 0) {
        leftOut_.insert("the service " + service.name + ", which the INF does not describe");
        return;
    }
    HiveFile& system = *hives_.System();
    const bool own = IsOwn(entry, service);
    const Key key = MakeInSet(KeyOfService(service.name));
    std::vector<HiveValue> values{
        NumberValue("Type", service.type),
        NumberValue("Start", service.start),
        NumberValue("ErrorControl", service.errorControl),
    };
    if (const std::string path = ImagePathOf(service, entry.folder); !path.empty())
        values.push_back(ExpandableValue("ImagePath", path));
    if (!service.displayName.meaning.empty())
        values.push_back(
            TextValue("DisplayName", IndirectText(service.displayName, entry.published)));
    if (!service.description.meaning.empty())
        values.push_back(
            TextValue("Description", IndirectText(service.description, entry.published)));
    if (!service.loadOrderGroup.empty())
        values.push_back(TextValue("Group", service.loadOrderGroup));
    if (!service.dependsOnServices.empty())
        values.push_back(TextsValue("DependOnService", service.dependsOnServices));
    if (!service.dependsOnGroups.empty())
        values.push_back(TextsValue("DependOnGroup", service.dependsOnGroups));
    if (!service.startName.empty() || IsWin32Service(service))
        values.push_back(
            TextValue("ObjectName", service.startName.empty() ? "LocalSystem" : service.startName));
    const auto keeps = [&](const HiveValue& value) {
        return std::any_of(std::begin(kKept), std::end(kKept), [&](const KeptValue& kept) {
            return (service.flags & kept.flag) != 0 && value.name == kept.name &&
                   system.Value(key, value.name);
        });
    };
    std::erase_if(values, keeps);
    system.Set(key, values);
    if (own)
        AddOwner(system, key, entry.published);
    if (const auto group = system.Value(key, "Group"); group && IsKernelDriver(service))
        ServiceTags(system, hives_.ControlSet())
            .Give(key, TextOf(*group), (service.flags & kTagToFront) != 0);
    // With another start in it, a driver of the boot would not be loaded.
    if (const Key override = system.Child(key, "StartOverride"))
        system.Remove(override);
    WriteDirectives(entry, key, service);
    Apply(key, service.settings);
    for (const auto& log : service.eventLogs)
        WriteEventLog(log);
}

void DriverReflection::WriteDirectives(const DriverEntry& entry, Key key,
                                       const ServiceInstall& service)
{
    HiveFile& system = *hives_.System();
    const auto isKept = [&](const ServiceDirective& directive) {
        const RegistrySetting& first = directive.settings.front();
        const Key there = system.Find(key, first.key);
        if (!there || !system.Value(there, first.name))
            return false;
        return (directive.name == "Security" && !(service.flags & kOverwritesSecurity)) ||
               std::any_of(std::begin(kKeptDirectives), std::end(kKeptDirectives),
                           [&](const KeptValue& kept) {
                               return (service.flags & kept.flag) && directive.name == kept.name;
                           });
    };
    // An image that does not tell its version is taken for the newest Windows.
    const bool isNewest = entry.windows->major == 0;
    for (const auto& directive : service.directives) {
        if (!isNewest && entry.windows->build < directive.firstBuild)
            continue;
        if (directive.settings.empty())
            leftOut_.insert("the " + directive.name + " of the service " + service.name);
        else if (!isKept(directive))
            for (const auto& setting : directive.settings)
                ApplySetting(system, key, setting);
    }
}

void DriverReflection::WriteEventLog(const EventLog& log)
{
    Apply(MakeInSet("Services\\EventLog\\" + log.type + "\\" + log.name), log.settings);
}

std::vector<std::string> DriverReflection::OwnersOf(const ReflectedFile& file) const
{
    HiveFile* const software = hives_.Software();
    const Key locked = software ? software->Find(kLockdownKey) : 0;
    const Key key = locked ? software->Child(locked, WithSystemRoot(file.path, '/')) : 0;
    const auto owners = key ? software->Value(key, "Owners") : std::nullopt;
    return owners ? TextsOf(*owners) : std::vector<std::string>();
}

void DriverReflection::WriteLockdown(const DriverEntry& entry, const ReflectedFile& file)
{
    HiveFile& software = *hives_.Software();
    const Key key = software.MakeChild(software.Make(kLockdownKey), WithSystemRoot(file.path, '/'));
    std::string source = PathOnDrive({13, ""}, entry.folder) + "\\" + file.source.Path();
    std::replace(source.begin(), source.end(), '/', '\\');
    constexpr std::uint32_t locked = 4, loose = 5;
    software.Set(key, {ExpandableValue("Source", WithSystemRoot(source, '\\')),
                       NumberValue("Class", entry.package->pnpLockdown ? locked : loose)});
    AddOwner(software, key, entry.published);
}

void DriverReflection::WriteCriticalDevices(const DriverEntry& entry)
{
    const DriverPackage& package = *entry.package;
    for (const auto& model : package.models) {
        std::vector<std::string> ids = model.compatibleIds;
        ids.insert(ids.begin(), model.hardwareId);
        for (auto id : ids) {
            if (id.empty() || model.service.empty())
                continue;
            std::replace(id.begin(), id.end(), '\\', '#');
            hives_.System()->Set(MakeInSet("Control\\CriticalDeviceDatabase\\" + id),
                                 {TextValue("Service", model.service),
                                  TextValue("ClassGUID", LowerCase(package.classGuid))});
        }
    }
}

void DriverReflection::WriteNewClass(const DriverPackage& package)
{
    if (!hives_.System() || package.classSettings.empty() ||
        hives_.System()->Find(hives_.ControlSet() + "\\Control\\Class\\" + package.classGuid))
        return;
    const Key key = MakeInSet("Control\\Class\\" + LowerCase(package.classGuid));
    hives_.System()->Set(key, {TextValue("Class", package.className)});
    Apply(key, package.classSettings);
}

void DriverReflection::Apply(Key hkr, const std::vector<RegistrySetting>& settings)
{
    HiveFile& system = *hives_.System();
    constexpr char currentSet[] = "system\\currentcontrolset\\";
    for (const auto& setting : settings) {
        if (setting.root == "HKR") {
            ApplySetting(system, hkr, setting);
        } else if (setting.root == "HKLM" && LowerCase(setting.key).starts_with(currentSet)) {
            RegistrySetting inSet = setting;
            inSet.key = setting.key.substr(sizeof currentSet - 1);
            ApplySetting(system, system.Make(hives_.ControlSet()), inSet);
        } else {
            leftOut_.insert(setting.root + "\\" + setting.key);
        }
    }
}

} // namespace kestro::servicing
