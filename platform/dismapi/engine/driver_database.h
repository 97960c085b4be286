// driver_database.h - the database of driver packages in an offline image's registry.
#pragma once

#include "driver_registry.h"
#include "hive_file.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kestro::servicing {

// The DriverDatabase key of one hive. Windows 8 and later have two of them: packages of classes that the
// boot needs are in SYSTEM, which is read before the system disk is there, the others in DRIVERS.
class DriverDatabase {
  public:
    enum class Part { System, Drivers };

    DriverDatabase(HiveFile& hive, Part part) : hive_(hive), part_(part) {}

    bool Knows(const std::string& published) const;
    // The repository folder that the package was registered with.
    std::optional<std::string> FolderOf(const std::string& published) const;
    // The package that a repository folder belongs to.
    std::optional<std::string> PublishedOf(const std::string& folder) const;
    std::vector<std::string> Published() const;
    // Whether a package of that class is registered besides one.
    bool HasClass(const std::string& classGuid, const std::string& besides) const;

    // Whether a package belongs into this part, in an image that has the parts which are given.
    bool IsHomeOf(const DriverPackage& package, bool hasDrivers, bool hasSystem) const;
    unsigned Changes() const { return hive_.Changes(); }

    // Writes what is missing or different. What an earlier registration under another version,
    // folder or number left is taken away.
    void Register(const DriverEntry& entry);
    // True if there was anything to take away.
    bool Unregister(const std::string& published);
    // Which numbers of published names are in use. The map is in SYSTEM, whichever part has the
    // packages.
    void WriteNumbers(const std::set<unsigned>& used);
    // Notes the time of a change, after all others.
    void Stamp();

  private:
    using Key = HiveFile::Key;
    using Values = std::vector<HiveValue>;

    Key Find(const std::string& path) const;
    bool IsStale(const DriverEntry& entry, const std::string& version) const;
    void WritePackage(const DriverEntry& entry, const std::string& version);
    void WriteConfigurations(Key package, const DriverEntry& entry);
    void WriteDescriptors(Key package, const DriverEntry& entry);
    void WriteDeviceIds(const DriverEntry& entry);
    void WriteSettings(Key key, const std::vector<RegistrySetting>& settings);
    bool RemoveDeviceIds(Key key, const std::string& published);

    HiveFile& hive_;
    Part part_;
};

} // namespace kestro::servicing
