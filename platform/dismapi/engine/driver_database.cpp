// driver_database.cpp - writes the database of driver packages in an offline image's registry.
#include "driver_database.h"

#include "driver_values.h"
#include "driver_version.h"
#include "registry_settings.h"

#include <algorithm>

namespace kestro::servicing {

// Everything below DriverDatabase that a package has, from the top down.
void DriverDatabase::Register(const DriverEntry& entry)
{
    const std::string version = VersionRecord(*entry.package, entry.windows->architecture);
    if (IsStale(entry, version))
        Unregister(entry.published);

    Values inf{TextsValue("", {entry.folder}), TextValue("Active", entry.folder)};
    if (part_ == Part::System)
        inf.push_back(TextsValue("Configurations", SectionsOf(*entry.package)));
    hive_.Set(hive_.Make(hive_.Make(kDatabaseKey), "DriverInfFiles\\" + entry.published), inf);

    WritePackage(entry, version);
    WriteDeviceIds(entry);
}

void DriverDatabase::WritePackage(const DriverEntry& entry, const std::string& version)
{
    const DriverPackage& package = *entry.package;
    const Key key = hive_.Make(std::string(kDatabaseKey) + "\\DriverPackages\\" + entry.folder);
    Values values{
        TextValue("", entry.published),
        TextValue("InfName", entry.storedInf),
        TextValue("Catalog", package.catalog),
        TextValue("Provider", package.provider),
        TextValue("SignerName", SignerNameOf(entry)),
        NumberValue("SignerScore", SignerScoreOf(entry)),
        NumberValue("StatusFlags", StatusFlagsOf(entry)),
    };
    // What is known of the first import stays, and of a version how it ends.
    if (!hive_.Value(key, "Version"))
        values.push_back(BytesValue("Version", version));
    if (!hive_.Value(key, "OemPath"))
        values.push_back(TextValue("OemPath", package.origin));
    if (!hive_.Value(key, "ImportDate"))
        values.push_back(BytesValue("ImportDate", FileTimeNow()));
    if (HasFileSize(*entry.windows))
        values.push_back(LongNumberValue("FileSize", entry.size));
    if (entry.catalogAttributes)
        values.push_back(NumberValue("CatalogAttributes", *entry.catalogAttributes));
    if (package.osVersionFloor != 0)
        values.push_back(NumberValue("OsVersionFloor", package.osVersionFloor));
    if (HasLockLevel(entry))
        values.push_back(NumberValue("LockLevel", 2));
    hive_.Set(key, values);

    if (HasSubmissionId(entry))
        hive_.Set(hive_.Make(key, "Properties\\{4da162c1-5eb1-4140-a444-5064c9814e76}\\0009"),
                  {PropertyText(entry.submissionId)});
    if (part_ == Part::Drivers)
        return;
    WriteConfigurations(key, entry);
    WriteDescriptors(key, entry);
    Values strings;
    for (const auto& [token, meaning] : package.modelStrings)
        strings.push_back(TextValue(token, meaning));
    if (!strings.empty())
        hive_.Set(hive_.Make(key, "Strings"), strings);
}

void DriverDatabase::WriteConfigurations(Key package, const DriverEntry& entry)
{
    for (const auto& configuration : entry.package->configurations) {
        const Key key =
            hive_.MakeChild(hive_.Make(package, "Configurations"), configuration.section);
        Values values{NumberValue("ConfigFlags", ConfigFlagsOf(configuration)),
                      NumberValue("ConfigScope", ConfigScopeOf(configuration, *entry.windows))};
        if (!configuration.service.empty())
            values.push_back(TextValue("Service", configuration.service));
        const auto others = Win32ServicesOf(configuration, *entry.windows);
        if (!others.empty())
            values.push_back(TextsValue("Win32Services", others));
        hive_.Set(key, values);

        if (HasDeviceSettings(*entry.windows) && !configuration.deviceSettings.empty())
            WriteSettings(hive_.Make(key, "Device"), configuration.deviceSettings);
        for (const auto& service : configuration.services)
            if (!service.settings.empty())
                WriteSettings(hive_.MakeChild(hive_.Make(key, "Services"), service.name),
                              service.settings);
    }
}

// What an AddReg section writes below HKR.
void DriverDatabase::WriteSettings(Key key, const std::vector<RegistrySetting>& settings)
{
    using Action = RegistrySetting::Action;
    for (const auto& setting : settings)
        if (setting.root == "HKR" &&
            (setting.action == Action::Set || setting.action == Action::SetIfAbsent ||
             setting.action == Action::Append || setting.action == Action::MakeKey))
            ApplySetting(hive_, key, setting);
}

namespace {

// An id that the package is for, and the line of its models that says so.
struct RankedId {
    std::string id;
    const DriverModel* model;
    std::uint8_t place; // 1 for the line's hardware id, 2 for the compatible ones

    std::pair<std::uint8_t, std::uint8_t> Rank() const { return {place, model->featureScore}; }
};

// Each id once: of several lines that have it the best one counts, else the first.
std::vector<RankedId> IdsOf(const DriverPackage& package)
{
    std::vector<RankedId> ids;
    std::map<std::string, std::size_t> known;
    const auto add = [&](const RankedId& ranked) {
        const auto [place, isNew] = known.emplace(LowerCase(ranked.id), ids.size());
        if (isNew)
            ids.push_back(ranked);
        else if (ranked.Rank() < ids[place->second].Rank())
            ids[place->second] = ranked;
    };
    for (const auto& model : package.models) {
        if (!model.hardwareId.empty())
            add({model.hardwareId, &model, 1});
        for (const auto& id : model.compatibleIds)
            add({id, &model, 2});
    }
    return ids;
}

} // namespace

void DriverDatabase::WriteDescriptors(Key package, const DriverEntry& entry)
{
    for (const auto& [id, model, place] : IdsOf(*entry.package))
        hive_.Set(hive_.Make(package, "Descriptors\\" + id),
                  {TextValue("Configuration", model->installSection),
                   TextValue("Description", model->descriptionToken),
                   TextValue("Manufacturer", model->manufacturerToken)});
}

void DriverDatabase::WriteDeviceIds(const DriverEntry& entry)
{
    const Key ids = hive_.Make(std::string(kDatabaseKey) + "\\DeviceIds");
    for (const auto& [id, model, place] : IdsOf(*entry.package))
        hive_.Set(
            hive_.Make(ids, id),
            {BytesValue(entry.published, {static_cast<char>(place),
                                          static_cast<char>(model->featureScore), '\0', '\0'})});
    hive_.Set(hive_.MakeChild(ids, LowerCase(entry.package->classGuid)),
              {{entry.published, registry::none, ""}});
}

// --- away ----------------------------------------------------------------------------------------

// Registered with what is not so any more, or never was: by another version of this database's writer. What
// Windows ends a version with is not known.
bool DriverDatabase::IsStale(const DriverEntry& entry, const std::string& version) const
{
    const auto folder = FolderOf(entry.published);
    if (!folder)
        return false;
    const auto there = hive_.Value(Find("DriverPackages\\" + *folder), "Version");
    constexpr std::size_t known = 40;
    return !EqualNames(*folder, entry.folder) || !there || there->data.size() != version.size() ||
           there->data.compare(0, known, version, 0, known) != 0;
}

bool DriverDatabase::Unregister(const std::string& published)
{
    bool found = false;
    for (const Key package : hive_.Children(Find("DriverPackages")))
        if (const auto name = hive_.Value(package, "");
            name && EqualNames(TextOf(*name), published)) {
            hive_.Remove(package);
            found = true;
        }
    if (const Key inf = Find("DriverInfFiles\\" + published)) {
        hive_.Remove(inf);
        found = true;
    }
    if (const Key ids = Find("DeviceIds"))
        found = RemoveDeviceIds(ids, published) || found;
    return found;
}

// Removes the package's values in and below a key, and the keys that are empty without them.
bool DriverDatabase::RemoveDeviceIds(Key key, const std::string& published)
{
    bool changed = hive_.RemoveValue(key, published);
    for (const Key child : hive_.Children(key))
        if (RemoveDeviceIds(child, published)) {
            changed = true;
            if (hive_.IsEmpty(child))
                hive_.Remove(child);
        }
    return changed;
}

} // namespace kestro::servicing
