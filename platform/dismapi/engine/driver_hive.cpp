// driver_hive.cpp - the driver database in an offline image's registry.
#include "driver_hive.h"

#include "driver_version.h"

#include <algorithm>
#include <charconv>

namespace fs = std::filesystem;

namespace kestro::servicing {

// Signer scores as SetupAPI defines them.
constexpr std::uint32_t kScoreAuthenticode = 0x0F000000;
constexpr std::uint32_t kScoreUnsigned = 0x80000000;

std::optional<unsigned> OemNumber(std::string_view published)
{
    const std::string name = LowerCase(published);
    unsigned number = 0;
    if (!name.starts_with("oem") || !name.ends_with(".inf") || name.size() < 8)
        return std::nullopt;
    const char* const end = name.data() + name.size() - 4;
    const auto read = std::from_chars(name.data() + 3, end, number);
    return read.ec == std::errc() && read.ptr == end ? std::optional(number) : std::nullopt;
}

DriverHive::DriverHive(const fs::path& file) : hive_(file)
{
    hive_.CheckForChanges({"DriverDatabase"});
}

bool DriverHive::HasDatabase() const
{
    return hive_.Find("DriverDatabase") != 0;
}

bool DriverHive::Knows(const std::string& published) const
{
    return hive_.Find("DriverDatabase\\DriverInfFiles\\" + published) != 0;
}

std::optional<std::string> DriverHive::FolderOf(const std::string& published) const
{
    const Key key = hive_.Find("DriverDatabase\\DriverInfFiles\\" + published);
    for (const char* name : {"Active", ""})
        if (const auto value = hive_.Value(key, name); value && !TextOf(*value).empty())
            return TextOf(*value);
    return std::nullopt;
}

void DriverHive::Register(const HiveEntry& entry)
{
    const Key database = hive_.Make("DriverDatabase");
    std::vector<std::string> configurations;
    for (const auto& model : entry.package->models)
        if (std::find(configurations.begin(), configurations.end(), model.installSection) ==
            configurations.end())
            configurations.push_back(model.installSection);
    hive_.Set(hive_.Make(database, "DriverInfFiles\\" + entry.published),
              {TextsValue("", {entry.folder}), TextValue("Active", entry.folder),
               TextsValue("Configurations", configurations)});
    WritePackage(database, entry);
    MarkNumber(database, entry.published, true);
}

void DriverHive::WritePackage(Key database, const HiveEntry& entry)
{
    const DriverPackage& package = *entry.package;
    const Key key = hive_.Make(database, "DriverPackages\\" + entry.folder);
    hive_.Set(key, {TextValue("", entry.published), TextValue("InfName", entry.storedInf),
                    TextValue("OemPath", package.origin), TextValue("Provider", package.provider),
                    TextValue("Catalog", package.catalog), TextValue("SignerName", entry.signer),
                    NumberValue("SignerScore",
                                entry.signer.empty() ? kScoreUnsigned : kScoreAuthenticode),
                    BytesValue("Version", VersionRecord(package, Architecture::Amd64)),
                    BytesValue("ImportDate", FileTimeNow())});
    std::vector<HiveValue> strings;
    for (const auto& [name, text] : package.strings)
        strings.push_back(TextValue(LowerCase(name), text));
    hive_.Set(hive_.Make(key, "Strings"), strings);
    WriteModels(database, key, entry);
}

void DriverHive::WriteModels(Key database, Key package, const HiveEntry& entry)
{
    for (const auto& model : entry.package->models) {
        hive_.Set(hive_.Make(package, "Configurations\\" + model.installSection),
                  {TextValue("Service", model.service), NumberValue("ConfigScope", 1)});
        if (model.hardwareId.empty())
            continue;
        hive_.Set(hive_.Make(package, "Descriptors\\" + model.hardwareId),
                  {TextValue("Configuration", model.installSection),
                   TextValue("Description", model.description),
                   TextValue("Manufacturer", model.manufacturer)});
        const std::string hardwareMatch("\x01\xFF\x00\x00", 4);
        hive_.Set(hive_.Make(database, "DeviceIds\\" + model.hardwareId),
                  {BytesValue(entry.published, hardwareMatch)});
        const std::string compatibleMatch("\x02\xFF\x00\x00", 4);
        for (const auto& id : model.compatibleIds)
            hive_.Set(hive_.Make(database, "DeviceIds\\" + id),
                      {BytesValue(entry.published, compatibleMatch)});
    }
}

// OemInfMap has one bit for each number in use, lowest number in the lowest bit.
void DriverHive::MarkNumber(Key database, const std::string& published, bool used)
{
    const auto number = OemNumber(published);
    if (!number)
        return;
    const auto value = hive_.Value(database, "OemInfMap");
    std::string map = value ? value->data : "";
    const std::size_t byte = *number / 8;
    const char bit = static_cast<char>(1 << *number % 8);
    if (map.size() <= byte && !used)
        return;
    if (map.size() <= byte)
        map.resize(byte + 1);
    map[byte] = static_cast<char>(used ? map[byte] | bit : map[byte] & ~bit);
    hive_.Set(database, {BytesValue("OemInfMap", map)});
}

void DriverHive::Unregister(const std::string& published)
{
    const Key database = hive_.Find("DriverDatabase");
    if (!database)
        return;
    for (const Key package : hive_.Children(hive_.Find(database, "DriverPackages")))
        if (const auto name = hive_.Value(package, "");
            name && EqualNames(TextOf(*name), published))
            hive_.Remove(package);
    if (const Key inf = hive_.Find(database, "DriverInfFiles\\" + published))
        hive_.Remove(inf);
    if (const Key ids = hive_.Find(database, "DeviceIds"))
        RemoveDeviceIds(ids, published);
    MarkNumber(database, published, false);
}

// Removes the package's values in and below a key; true if the key lost something and is empty now.
bool DriverHive::RemoveDeviceIds(Key key, const std::string& published)
{
    bool changed = hive_.RemoveValue(key, published);
    for (const Key child : hive_.Children(key)) {
        if (!RemoveDeviceIds(child, published))
            continue;
        hive_.Remove(child);
        changed = true;
    }
    return changed && hive_.IsEmpty(key);
}

void DriverHive::Save(const fs::path& file)
{
    hive_.Save(file);
}

} // namespace kestro::servicing
