// driver_hive.h - the driver database in an offline image's registry.
#pragma once

#include "driver_package.h"
#include "hive_file.h"

#include <filesystem>
#include <optional>
#include <string>

namespace kestro::servicing {

struct HiveEntry {
    const DriverPackage* package = nullptr;
    std::string published; // "oem0.inf"
    std::string folder;    // name of the folder in the driver store's repository
    std::string storedInf; // name of the INF in that folder
    std::string signer;    // empty for an unsigned package
};

// The hive is read into memory; Save writes a new file and leaves the one that was opened as it is.
class DriverHive {
  public:
    explicit DriverHive(const std::filesystem::path& file);

    bool HasDatabase() const;
    bool Knows(const std::string& published) const;
    // The repository folder that the package was registered with.
    std::optional<std::string> FolderOf(const std::string& published) const;

    void Register(const HiveEntry& entry);
    void Unregister(const std::string& published);
    void Save(const std::filesystem::path& file);

  private:
    using Key = HiveFile::Key;

    void WritePackage(Key database, const HiveEntry& entry);
    void WriteModels(Key database, Key package, const HiveEntry& entry);
    void MarkNumber(Key database, const std::string& published, bool used);
    bool RemoveDeviceIds(Key key, const std::string& published);

    HiveFile hive_;
};

// The number in "oem7.inf"; nothing for any other name.
std::optional<unsigned> OemNumber(std::string_view published);

} // namespace kestro::servicing
