// driver_unreflection.cpp - takes what a package installed in an offline image's registry away again.
#include "driver_unreflection.h"

#include "driver_registry.h"
#include "image_tree.h"
#include "service_tags.h"

#include <algorithm>

namespace kestro::servicing {

namespace {

constexpr char kRepository[] = "\\FileRepository\\";

// The owners of a key without the package; nothing if it is none of them.
std::optional<std::vector<std::string>> OtherOwners(const HiveFile& hive, HiveFile::Key key,
                                                    const std::string& published)
{
    const auto value = hive.Value(key, "Owners");
    auto owners = value ? TextsOf(*value) : std::vector<std::string>();
    const auto is = [&](const std::string& owner) { return EqualNames(owner, published); };
    return std::erase_if(owners, is) != 0 ? std::optional(owners) : std::nullopt;
}

std::size_t FindName(const std::string& text, const std::string& part)
{
    return LowerCase(text).find(LowerCase(part));
}

// "%SystemRoot%/System32/x.dll" as a path below the system drive; empty for a place of another kind.
std::string LockedPath(const std::string& key)
{
    std::string path;
    if (FindName(key, "%SystemRoot%/") == 0)
        path = "Windows/" + key.substr(sizeof "%SystemRoot%/" - 1);
    else if (FindName(key, "%SystemDrive%/") == 0)
        path = key.substr(sizeof "%SystemDrive%/" - 1);
    std::replace(path.begin(), path.end(), '/', '\\');
    return path.find("..") == std::string::npos ? path : "";
}

} // namespace

HiveFile::Key DriverUnreflection::InSet(const std::string& path)
{
    return hives_.System()->Find(hives_.ControlSet() + "\\" + path);
}

Unreflected DriverUnreflection::Remove(const std::string& published, const DriverPackage* described)
{
    Unreflected result;
    if (hives_.System())
        for (const Key service : hives_.System()->Children(InSet("Services"))) {
            const auto others = OtherOwners(*hives_.System(), service, published);
            if (!others)
                continue;
            if (others->empty()) {
                RemoveService(service, described, result);
            } else {
                hives_.System()->Set(service, {TextsValue("Owners", *others)});
                HandOver(service, published, others->back());
            }
        }
    if (hives_.Software())
        RemoveLockdown(published, result);
    return result;
}

void DriverUnreflection::RemoveService(Key service, const DriverPackage* described,
                                       Unreflected& result)
{
    HiveFile& system = *hives_.System();
    const std::string name = system.Name(service);
    if (const auto start = system.Value(service, "Start"); start && NumberOf(*start) == 0)
        result.bootServices.push_back(name);
    ServiceTags(system, hives_.ControlSet()).TakeBack(service);
    system.Remove(service);
    RemoveEventLogs(name, described);
    RemoveCriticalDevices(name);
}

void DriverUnreflection::RemoveEventLogs(const std::string& service, const DriverPackage* described)
{
    HiveFile& system = *hives_.System();
    for (const Key log : system.Children(InSet("Services\\EventLog")))
        if (const Key source = system.Child(log, service))
            system.Remove(source);
    if (!described)
        return;
    for (const auto& configuration : described->configurations)
        for (const auto& one : configuration.services)
            for (const auto& log : one.eventLogs)
                if (const Key source =
                        EqualNames(one.name, service)
                            ? InSet("Services\\EventLog\\" + log.type + "\\" + log.name)
                            : 0)
                    system.Remove(source);
}

void DriverUnreflection::RemoveCriticalDevices(const std::string& service)
{
    HiveFile& system = *hives_.System();
    for (const Key device : system.Children(InSet("Control\\CriticalDeviceDatabase")))
        if (const auto its = system.Value(device, "Service");
            its && EqualNames(TextOf(*its), service))
            system.Remove(device);
}

// A service that another package goes on with must not lead to what goes.
void DriverUnreflection::HandOver(Key service, const std::string& from, const std::string& to)
{
    HiveFile& system = *hives_.System();
    for (const char* name : {"DisplayName", "Description"}) {
        const auto value = system.Value(service, name);
        const std::string text = value ? TextOf(*value) : "";
        if (FindName(text, "@" + from + ",") == 0)
            system.Set(service, {TextValue(name, "@" + to + text.substr(1 + from.size()))});
    }
    const auto path = system.Value(service, "ImagePath");
    const auto ours = folderOf_(from);
    const auto theirs = folderOf_(to);
    if (!path || !ours || !theirs)
        return;
    std::string text = TextOf(*path);
    if (const auto at = FindName(text, kRepository + *ours + "\\"); at != std::string::npos) {
        text.replace(at + sizeof kRepository - 1, ours->size(), *theirs);
        system.Set(service, {ExpandableValue("ImagePath", text)});
    }
}

void DriverUnreflection::RemoveLockdown(const std::string& published, Unreflected& result)
{
    HiveFile& software = *hives_.Software();
    for (const Key file : software.Children(software.Find(kLockdownKey))) {
        const auto others = OtherOwners(software, file, published);
        if (!others)
            continue;
        const std::string path = LockedPath(software.Name(file));
        if (others->empty()) {
            software.Remove(file);
            if (!path.empty())
                result.files.push_back(path);
            continue;
        }
        software.Set(file, {TextsValue("Owners", *others)});
        const auto source = software.Value(file, "Source");
        const auto ours = folderOf_(published);
        const auto theirs = folderOf_(others->back());
        std::string text = source ? TextOf(*source) : "";
        const auto at = ours ? FindName(text, kRepository + *ours + "\\") : std::string::npos;
        if (!theirs || at == std::string::npos)
            continue;
        const std::string rest = text.substr(at + sizeof kRepository + ours->size());
        text.replace(at + sizeof kRepository - 1, ours->size(), *theirs);
        software.Set(file, {ExpandableValue("Source", text)});
        if (!path.empty())
            result.handed.push_back({path, *theirs, rest});
    }
}

void DriverUnreflection::RemoveClass(const DriverPackage& package)
{
    if (!hives_.System() || package.classSettings.empty())
        return;
    HiveFile& system = *hives_.System();
    const Key key = InSet("Control\\Class\\" + package.classGuid);
    if (!key || !system.Children(key).empty())
        return;
    std::vector<HiveValue> described{TextValue("Class", package.className)};
    for (const auto& setting : package.classSettings)
        if (setting.root == "HKR" && setting.key.empty())
            described.push_back({setting.name, setting.type, setting.data});
    for (const auto& value : system.Values(key))
        if (std::find(described.begin(), described.end(), value) == described.end())
            return;
    system.Remove(key);
}

} // namespace kestro::servicing
