// driver_database_index.cpp - what the database of driver packages says about names and numbers.
#include "driver_database.h"

#include "driver_version.h"

#include <charconv>

namespace kestro::servicing {

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

DriverDatabase::Key DriverDatabase::Find(const std::string& path) const
{
    const Key database = hive_.Find(kDatabaseKey);
    return database ? hive_.Find(database, path) : 0;
}

bool DriverDatabase::Knows(const std::string& published) const
{
    return Find("DriverInfFiles\\" + published) != 0;
}

std::vector<std::string> DriverDatabase::Published() const
{
    std::vector<std::string> names;
    for (const Key inf : hive_.Children(Find("DriverInfFiles")))
        names.push_back(hive_.Name(inf));
    return names;
}

std::optional<std::string> DriverDatabase::FolderOf(const std::string& published) const
{
    const Key inf = Find("DriverInfFiles\\" + published);
    for (const char* name : {"Active", ""})
        if (const auto value = hive_.Value(inf, name); value && !TextOf(*value).empty())
            return TextOf(*value);
    return std::nullopt;
}

std::optional<std::string> DriverDatabase::PublishedOf(const std::string& folder) const
{
    const auto name = hive_.Value(Find("DriverPackages\\" + folder), "");
    return name && OemNumber(TextOf(*name)) ? std::optional(TextOf(*name)) : std::nullopt;
}

bool DriverDatabase::IsHomeOf(const DriverPackage& package, bool hasDrivers, bool hasSystem) const
{
    const bool inSystem = hasSystem && (package.bootCritical || !hasDrivers);
    return inSystem == (part_ == Part::System);
}

bool DriverDatabase::HasClass(const std::string& classGuid, const std::string& besides) const
{
    constexpr std::size_t inVersion = 8;
    const std::string guid = GuidBytes(classGuid);
    for (const Key package : hive_.Children(Find("DriverPackages"))) {
        const auto version = hive_.Value(package, "Version");
        const auto name = hive_.Value(package, "");
        if (version && !(name && EqualNames(TextOf(*name), besides)) &&
            version->data.size() >= inVersion + guid.size() &&
            version->data.compare(inVersion, guid.size(), guid) == 0)
            return true;
    }
    return false;
}

// One bit for each number in use, the lowest number in the highest bit of the first byte.
static std::string NumberMap(const std::set<unsigned>& used)
{
    std::string map(used.empty() ? 0 : *used.rbegin() / 8 + 1, '\0');
    for (const unsigned number : used)
        map[number / 8] = static_cast<char>(map[number / 8] | 0x80 >> number % 8);
    return map;
}

void DriverDatabase::WriteNumbers(const std::set<unsigned>& used)
{
    constexpr char name[] = "OemInfMap";
    constexpr unsigned most = 100'000; // Windows gives no such numbers; somebody named a file so
    std::set<unsigned> sane(used.begin(), used.lower_bound(most));
    if (const Key database = hive_.Find(kDatabaseKey); part_ == Part::Drivers || sane.empty()) {
        if (database)
            hive_.RemoveValue(database, name);
        return;
    }
    hive_.Set(hive_.Make(kDatabaseKey), {BytesValue(name, NumberMap(sane))});
}

void DriverDatabase::Stamp()
{
    hive_.Set(hive_.Make(kDatabaseKey), {BytesValue("UpdateDate", FileTimeNow())});
}

} // namespace kestro::servicing
