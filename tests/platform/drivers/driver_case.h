// driver_case.h - what the tests of the driver store share: an offline Windows tree with a registry
// hive, driver packages to add, and hivexsh as the judge of the registry.
#pragma once

#include "driver_store.h"
#include "files.h"
#include "refusal.h"

#include <map>
#include <string>

namespace kestro::test {

class DriverCase : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    fs::path Root() const { return folder_ / "image"; }
    fs::path In(const std::string& relative) const { return Root() / relative; }
    fs::path Hive() const { return In(kHive); }
    servicing::DriverStore Store() const { return servicing::DriverStore(Root()); }

    // A package on disk: an INF, a driver and a file in a subfolder; different for different names.
    servicing::DriverPackage MakePackage(const std::string& name) const;
    servicing::AddResult Add(const std::string& name) const
    {
        return Store().Add(MakePackage(name), true);
    }
    // Checks every trace of a package that the store says it has.
    void ExpectWhole(const servicing::AddResult& added, const std::string& name) const;

    // Names of the keys below a registry key, and one value, as hivexsh prints them.
    std::string Keys(const std::string& key) const;
    std::string Value(const std::string& key, const std::string& name) const;

    // Every path below the image with its content. The hive's own bytes differ with the time of a change.
    using Files = std::map<std::string, std::string>;
    Files Snapshot() const { return SnapshotOf(Root()); }
    static Files SnapshotOf(const fs::path& root);

    fs::path folder_;

  private:
    static constexpr const char* kHive = "Windows/System32/config/DRIVERS";
};

} // namespace kestro::test
