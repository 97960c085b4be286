// driver_case.h - what the tests of the driver store share: an offline Windows tree with its registry
// hives, driver packages to add, and hivexregedit as the judge of the registry.
#pragma once

#include "driver_store.h"
#include "files.h"
#include "refusal.h"
#include "registry_text.h"

#include <map>
#include <string>

namespace kestro::test {

inline constexpr char kScsiAdapter[] = "{4d36e97b-e325-11ce-bfc1-08002be10318}";
inline constexpr char kNet[] = "{4d36e972-e325-11ce-bfc1-08002be10318}";

class DriverCase : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    fs::path Root() const { return folder_ / "image"; }
    fs::path In(const std::string& relative) const { return Root() / relative; }
    fs::path Hive(const std::string& name = "DRIVERS") const
    {
        return In("Windows/System32/config/" + name);
    }
    servicing::DriverStore Store() const { return servicing::DriverStore(Root()); }

    // A package on disk: an INF, a driver and a file in a subfolder; different for different names.
    servicing::DriverPackage MakePackage(const std::string& name) const;
    // The same for a class that the boot needs: with a service, its event log and a driver that is
    // copied to System32\drivers.
    servicing::DriverPackage MakeBootPackage(const std::string& name) const;
    servicing::AddResult Add(const servicing::DriverPackage& package, bool force = true) const;
    servicing::AddResult Add(const std::string& name) const { return Add(MakePackage(name)); }
    servicing::AddResult AddBoot(const std::string& name) const
    {
        return Add(MakeBootPackage(name));
    }
    void Remove(const std::string& published,
                const servicing::DriverPackage* described = nullptr) const;
    // Checks every trace of a package that the store says it has.
    void ExpectWhole(const servicing::AddResult& added, const std::string& name) const;
    void ExpectWholeBoot(const servicing::AddResult& added, const std::string& name) const;

    // What a hive holds, below a key, without the times of changes.
    RegistryText Registry(const std::string& hive, const std::string& key) const;
    RegistryText Database(const std::string& hive = "DRIVERS") const
    {
        return Registry(hive, "DriverDatabase");
    }
    std::string Service(const std::string& service, const std::string& value) const;

    // Every path below the image with its content, of hives what is in them.
    using Files = std::map<std::string, std::string>;
    Files Snapshot() const { return SnapshotOf(Root()); }
    static Files SnapshotOf(const fs::path& root);

    fs::path folder_;
};

} // namespace kestro::test
