// driver_registry_test.cpp - where a package is entered in the image's registry, what is mended there, and
// what goes with a package.
#include "driver_case.h"
#include "hive_file.h"
#include "minimal_hive.h"
#include "text_encoding.h"

#include <functional>

namespace code = kestro::servicing::code;

namespace kestro::test {
namespace {

using Registries = DriverCase;
using servicing::DriverPackage;

std::string LockdownKey(const std::string& file)
{
    return "%systemroot%/system32/drivers/" + file + "  ";
}

// --- which hive ----------------------------------------------------------------------------------------

TEST_F(Registries, PackagesThatTheBootNeedsAreInSystemTheOthersInDrivers)
{
    const auto card = Add("card");
    const auto disk = AddBoot("disk");
    const std::string cardKey = "driverpackages\\" + card.folder.filename().string();
    const std::string diskKey = "driverpackages\\" + disk.folder.filename().string();
    auto system = Database("SYSTEM");
    auto drivers = Database("DRIVERS");
    EXPECT_EQ(drivers[cardKey + "  infname"], "SZ card.inf");
    EXPECT_EQ(system[diskKey + "  infname"], "SZ disk.inf");
    EXPECT_FALSE(system.contains(cardKey + "  infname"));
    EXPECT_FALSE(drivers.contains(diskKey + "  infname"));
    // Only the part that the boot reads tells how to install.
    EXPECT_EQ(system["driverinffiles\\oem1.inf  configurations"], "MSZ Install.NT");
    EXPECT_TRUE(system.contains(diskKey + "\\descriptors\\pci\\cc_0200  configuration"));
    EXPECT_EQ(system[diskKey + "\\strings  maker"], "SZ Maker");
    EXPECT_FALSE(drivers.contains("driverinffiles\\oem0.inf  configurations"));
    EXPECT_FALSE(drivers.contains(cardKey + "\\descriptors\\pci\\cc_0200  configuration"));
    // The map of numbers is in SYSTEM for both.
    EXPECT_EQ(system["  oeminfmap"], "BIN c0");
    EXPECT_FALSE(drivers.contains("  oeminfmap"));
    for (const char* hive : {"SYSTEM", "DRIVERS"})
        EXPECT_TRUE(ReadRegistry(Hive(hive), "DriverDatabase").contains("  updatedate")) << hive;
}

TEST_F(Registries, TheMapHasGapsAndGrows)
{
    for (int i = 0; i < 10; ++i)
        Add("card" + std::to_string(i));
    EXPECT_EQ(Database("SYSTEM")["  oeminfmap"], "BIN ffc0");
    for (const char* gone : {"oem0.inf", "oem2.inf", "oem8.inf"})
        Remove(gone);
    EXPECT_EQ(Database("SYSTEM")["  oeminfmap"], "BIN 5f40");
    EXPECT_EQ(Add("next").published, "oem0.inf");
    EXPECT_EQ(Database("SYSTEM")["  oeminfmap"], "BIN df40");
}

// --- what is installed ---------------------------------------------------------------------------------

TEST_F(Registries, OnlyPackagesThatTheBootNeedsAreInstalled)
{
    const auto before = Registry("SYSTEM", "ControlSet002");
    Add("card");
    EXPECT_EQ(Registry("SYSTEM", "ControlSet002"), before);
    EXPECT_FALSE(fs::exists(In("Windows/System32/drivers")));
    ExpectWholeBoot(AddBoot("disk"), "disk");
}

TEST_F(Registries, ALeftoverStartOverrideGoes)
{
    MergeRegistry(Hive("SYSTEM"), "[\\ControlSet002\\Services\\svcdisk\\StartOverride]\n"
                                  "\"0\"=dword:00000003\n\n");
    AddBoot("disk");
    EXPECT_TRUE(Registry("SYSTEM", "ControlSet002\\Services\\svcdisk\\StartOverride").empty());
}

TEST_F(Registries, AServiceHasItsDirectivesAndItsPackagesFolder)
{
    auto package = MakeBootPackage("disk");
    auto& service = package.configurations[0].services[0];
    servicing::RegistrySetting setting = service.settings[0];
    setting.key = "";
    setting.name = "BootFlags";
    service.directives = {{"BootFlags", 0, {setting}}};
    setting.name = "Help";
    setting.type = 2;
    setting.data = servicing::Utf16Of("%13%\\help.dll") + std::string(2, '\0');
    service.settings.push_back(setting);
    const auto added = Add(package);
    EXPECT_EQ(Service("svcdisk", "BootFlags"), "DW 0x1");
    EXPECT_EQ(Service("svcdisk", "Help"),
              "EX %SystemRoot%\\System32\\DriverStore\\FileRepository\\" +
                  added.folder.filename().string() + "\\help.dll");
}

TEST_F(Registries, TagsAreFreeOnesOfTheGroup)
{
    MergeRegistry(Hive("SYSTEM"),
                  "[\\ControlSet002\\Services\\other]\n\"Group\"=\"SCSI miniport\"\n"
                  "\"Tag\"=dword:00000002\n\n[\\ControlSet002\\Control\\GroupOrderList]\n"
                  "\"SCSI Miniport\"=hex(3):02,00,00,00,01,00,00,00,03,00,00,00\n\n");
    AddBoot("disk");
    EXPECT_EQ(Service("svcdisk", "Tag"), "DW 0x4");
    const auto order = [&] {
        return Registry("SYSTEM", "ControlSet002\\Control\\GroupOrderList")["  scsi miniport"];
    };
    EXPECT_EQ(order(), "BIN 03000000010000000300000004000000");
    Remove("oem0.inf");
    EXPECT_EQ(order(), "BIN 020000000100000003000000");
}

TEST_F(Registries, ADriverOfTheBootWithoutASignatureIsWarnedOf)
{
    servicing::DriverStore store(
        Root(), servicing::PlatformLog(folder_ / "log", servicing::LogLevel::Warning));
    store.Add(MakeBootPackage("disk"), true);
    store.Save();
    EXPECT_NE(ReadFile(folder_ / "log").find("no signature of its own"), std::string::npos);
    store.Remove("oem0.inf");
    store.Save();
    EXPECT_NE(ReadFile(folder_ / "log").find("may not start without it"), std::string::npos);
}

TEST_F(Registries, ANewClassIsDescribedAndGoesWithItsPackage)
{
    MergeRegistry(Hive("SYSTEM"), "[\\ControlSet002\\Control\\Class]\n\n");
    DriverPackage package = MakePackage("card");
    package.classGuid = "{12345678-1111-2222-3333-444455556666}";
    package.className = "Samples";
    servicing::RegistrySetting text;
    text.root = "HKR";
    text.type = 1;
    text.data = servicing::TextValue("", "Sample devices").data;
    package.classSettings = {text};
    Add(package);
    const std::string key = "ControlSet002\\Control\\Class\\" + package.classGuid;
    EXPECT_EQ(Registry("SYSTEM", key)["  @"], "SZ Sample devices");
    EXPECT_EQ(Registry("SYSTEM", key)["  class"], "SZ Samples");
    Remove("oem0.inf", &package);
    EXPECT_TRUE(Registry("SYSTEM", key).empty());
}

// --- a service that two packages have ------------------------------------------------------------------

class SharedServices : public DriverCase {
  protected:
    // Both install the service svcdisk from a driver disk.sys.
    DriverPackage Newer() const
    {
        DriverPackage package = MakeBootPackage("disk");
        const fs::path source = folder_ / "source/newer";
        fs::remove_all(source);
        fs::copy(package.inf.parent_path(), source, fs::copy_options::recursive);
        WriteFile(source / "disk.inf", "the newer INF of disk");
        WriteFile(source / "disk.sys", "the newer driver of disk");
        package.inf = source / "disk.inf";
        package.configurations[0].services[0].displayName = {"%Disk%", "The disk"};
        return package;
    }
};

TEST_F(SharedServices, StayUntilBothAreGone)
{
    for (const bool olderFirst : {true, false}) {
        SCOPED_TRACE(olderFirst);
        AddBoot("disk");
        Add(Newer());
        EXPECT_EQ(Service("svcdisk", "Owners"), "MSZ oem0.inf|oem1.inf");
        EXPECT_EQ(Service("svcdisk", "DisplayName"), "SZ @oem1.inf,%Disk%;The disk");
        EXPECT_EQ(ReadFile(In("Windows/System32/drivers/disk.sys")), "the newer driver of disk");
        Remove(olderFirst ? "oem0.inf" : "oem1.inf");
        const std::string other = olderFirst ? "oem1.inf" : "oem0.inf";
        EXPECT_EQ(Service("svcdisk", "Owners"), "MSZ " + other);
        EXPECT_EQ(Service("svcdisk", "DisplayName"), "SZ @" + other + ",%Disk%;The disk");
        auto locked = Registry("SOFTWARE", servicing::kLockdownKey);
        EXPECT_EQ(locked[LockdownKey("disk.sys") + "owners"], "MSZ " + other);
        const std::string folder = Store().Find(other)->original.parent_path().filename();
        EXPECT_EQ(locked[LockdownKey("disk.sys") + "source"],
                  "EX %SystemRoot%\\System32\\DriverStore\\FileRepository\\" + folder +
                      "\\disk.sys");
        // The file is the one of the package that stays.
        EXPECT_EQ(ReadFile(In("Windows/System32/drivers/disk.sys")),
                  olderFirst ? "the newer driver of disk" : "the driver of disk");
        Remove(other);
        EXPECT_EQ(Service("svcdisk", "Owners"), "");
        EXPECT_FALSE(fs::exists(In("Windows/System32/drivers/disk.sys")));
    }
}

// Windows' own services have no owners.
TEST_F(Registries, AServiceOfSomebodyElseStays)
{
    MergeRegistry(Hive("SYSTEM"),
                  "[\\ControlSet002\\Services\\disk]\n\"Start\"=dword:00000000\n\n");
    AddBoot("card");
    Remove("oem0.inf");
    EXPECT_EQ(Service("disk", "Start"), "DW 0x0");
}

// --- added again ---------------------------------------------------------------------------------------

class Mended : public DriverCase {
  protected:
    void SetUp() override
    {
        DriverCase::SetUp();
        package_ = MakeBootPackage("disk");
        added_ = Add(package_);
        whole_ = Snapshot();
    }
    void ExpectMended() const
    {
        EXPECT_FALSE(Snapshot() == whole_);
        const auto again = Add(package_);
        EXPECT_TRUE(again.alreadyThere);
        EXPECT_EQ(again.published, added_.published);
        EXPECT_EQ(again.folder, added_.folder);
        EXPECT_TRUE(Snapshot() == whole_);
    }
    void Change(const std::string& hive,
                const std::function<void(servicing::HiveFile&)>& work) const
    {
        servicing::HiveFile file(Hive(hive));
        work(file);
        file.Save(folder_ / "changed");
        fs::rename(folder_ / "changed", Hive(hive));
    }
    void RemoveKey(const std::string& hive, const std::string& key) const
    {
        Change(hive, [&](servicing::HiveFile& file) { file.Remove(file.Find(key)); });
    }

    DriverPackage package_;
    servicing::AddResult added_;
    Files whole_;
};

TEST_F(Mended, Files)
{
    for (const fs::path& gone :
         {added_.folder / "disk.sys", added_.folder / "x64", added_.folder / "disk.inf",
          In("Windows/System32/drivers/disk.sys"), In("Windows/INF/oem0.inf"), added_.folder}) {
        SCOPED_TRACE(gone);
        fs::remove_all(gone);
        ExpectMended();
    }
    WriteFile(added_.folder / "disk.sys", "something else");
    ExpectMended();
    WriteFile(In("Windows/System32/drivers/disk.sys"), "something else");
    ExpectMended();
}

TEST_F(Mended, KeysAndValues)
{
    const std::string package =
        "DriverDatabase\\DriverPackages\\" + added_.folder.filename().string();
    for (const auto& [hive, key] : std::vector<std::pair<std::string, std::string>>{
             {"SYSTEM", "DriverDatabase\\DriverInfFiles\\oem0.inf"},
             {"SYSTEM", "DriverDatabase\\DeviceIds"},
             {"SYSTEM", package},
             {"SYSTEM", package + "\\Descriptors\\PCI\\CC_0200"},
             {"SYSTEM", package + "\\Strings"},
             {"SYSTEM", package + "\\Configurations"},
             {"SYSTEM", "DriverDatabase"},
             {"SYSTEM", "ControlSet002\\Services\\svcdisk\\Parameters"},
             {"SYSTEM", "ControlSet002\\Services\\EventLog\\System\\svcdisk"},
             {"SOFTWARE", "Microsoft"}}) {
        SCOPED_TRACE(key);
        RemoveKey(hive, key);
        ExpectMended();
    }
    Change("SYSTEM", [&](servicing::HiveFile& file) {
        file.Set(file.Find(package), {servicing::NumberValue("StatusFlags", 0)});
        file.Set(file.Find("ControlSet002\\Services\\svcdisk"),
                 {servicing::TextsValue("Owners", {}), servicing::NumberValue("Start", 4)});
    });
    ExpectMended();
}

// An image of earlier versions: the package in the wrong hive, a Version and a map with their bytes and
// bits the other way round, nothing installed.
TEST_F(Mended, WhatEarlierVersionsWrote)
{
    const std::string folder = added_.folder.filename();
    for (const char* key : {"DriverDatabase\\DriverInfFiles\\oem0.inf", "DriverDatabase\\DeviceIds",
                            "ControlSet002\\Services\\svcdisk"})
        RemoveKey("SYSTEM", key);
    RemoveKey("SYSTEM", "DriverDatabase\\DriverPackages\\" + folder);
    RemoveKey("SOFTWARE", "Microsoft");
    fs::remove(In("Windows/System32/drivers/disk.sys"));
    Change("SYSTEM", [](servicing::HiveFile& file) {
        file.RemoveValue(file.Find("DriverDatabase"), "OemInfMap");
    });
    Change("DRIVERS", [&](servicing::HiveFile& file) {
        using namespace servicing;
        file.Set(file.Make("DriverDatabase"), {BytesValue("OemInfMap", "\1")});
        file.Set(file.Make("DriverDatabase\\DriverInfFiles\\oem0.inf"),
                 {TextsValue("", {folder}), TextValue("Active", folder)});
        file.Set(file.Make("DriverDatabase\\DriverPackages\\" + folder),
                 {TextValue("", "oem0.inf"), BytesValue("Version", std::string(48, '\1'))});
        file.Set(file.Make("DriverDatabase\\DeviceIds\\PCI\\CC_0200"),
                 {BytesValue("oem0.inf", std::string("\2\xFF\0\0", 4))});
    });
    EXPECT_TRUE(Add(package_).alreadyThere);
    ExpectWholeBoot(added_, "disk");
    const auto drivers = Database("DRIVERS");
    for (const auto& [name, value] : drivers)
        EXPECT_EQ(value, "") << name;
    EXPECT_EQ(Database("SYSTEM")["  oeminfmap"], "BIN 80");
}

TEST_F(Mended, AWrongVersionOfAPackageThatIsOnlyStaged)
{
    const auto card = Add("card");
    const auto whole = Snapshot();
    Change("DRIVERS", [&](servicing::HiveFile& file) {
        file.Set(file.Find("DriverDatabase\\DriverPackages\\" + card.folder.filename().string()),
                 {servicing::BytesValue("Version", std::string(48, '\1')),
                  servicing::TextValue("Left", "of another writer")});
    });
    EXPECT_TRUE(Add("card").alreadyThere);
    EXPECT_TRUE(Snapshot() == whole);
}

TEST_F(Mended, WhatWindowsEndsAVersionWithStays)
{
    const std::string package =
        "DriverDatabase\\DriverPackages\\" + added_.folder.filename().string();
    Change("SYSTEM", [&](servicing::HiveFile& file) {
        auto version = *file.Value(file.Find(package), "Version");
        version.data[42] = 0x40;
        file.Set(file.Find(package), {version, servicing::TextValue("Another", "of Windows")});
    });
    whole_ = Snapshot();
    EXPECT_TRUE(Add(package_).alreadyThere);
    EXPECT_TRUE(Snapshot() == whole_);
}

// --- one session ---------------------------------------------------------------------------------------

TEST_F(Registries, ASessionSeesWhatItHasNotSaved)
{
    Add("there");
    const auto before = Snapshot();
    servicing::DriverStore store(Root());
    EXPECT_EQ(store.Add(MakePackage("card"), true).published, "oem1.inf");
    EXPECT_EQ(store.Add(MakeBootPackage("disk"), true).published, "oem2.inf");
    EXPECT_TRUE(store.Add(MakePackage("card"), true).alreadyThere);
    ASSERT_EQ(store.List(false).size(), 3u);
    EXPECT_EQ(ReadFile(store.Find("oem1.inf")->path), "the INF of card");
    EXPECT_EQ(store.Find("oem1.inf")->original.filename(), "card.inf");
    store.Remove("oem0.inf");
    EXPECT_FALSE(store.Find("oem0.inf"));
    EXPECT_EQ(store.Add(MakePackage("next"), true).published, "oem0.inf");
    store.Remove("oem1.inf");
    EXPECT_CODE(store.Remove("oem1.inf"), code::file_not_found);
    // Nobody else sees it.
    EXPECT_EQ(Store().List(false).size(), 1u);
    store.Save();
    EXPECT_EQ(Store().List(false).size(), 2u);
    EXPECT_EQ(ReadFile(In("Windows/INF/oem0.inf")), "the INF of next");
    EXPECT_FALSE(Database().contains("driverinffiles\\oem1.inf  active"));
    EXPECT_EQ(Database("SYSTEM")["  oeminfmap"], "BIN a0");
    Remove("oem2.inf"), Remove("oem0.inf"), Add("there");
    EXPECT_TRUE(fs::exists(In("Windows/INF/oem0.inf")));
}

TEST_F(Registries, ASessionThatIsNotSavedLeavesNothing)
{
    Add("there");
    const auto before = Snapshot();
    {
        servicing::DriverStore store(Root());
        store.Add(MakeBootPackage("disk"), true);
        store.Remove("oem0.inf");
    }
    EXPECT_TRUE(Snapshot() == before);
}

TEST_F(Registries, APackageThatIsRefusedTakesNoOtherWithIt)
{
    servicing::DriverStore store(Root());
    store.Add(MakePackage("card"), true);
    DriverPackage refused = MakePackage("refused");
    EXPECT_CODE(store.Add(refused, false), code::catalog_missing);
    refused.files.push_back({"", "missing.sys"});
    EXPECT_CODE(store.Add(refused, true), code::file_not_found);
    store.Save();
    EXPECT_EQ(Store().List(false).size(), 1u);
}

// --- other Windows -------------------------------------------------------------------------------------

class Windows7 : public DriverCase {
  protected:
    void SetUp() override
    {
        DriverCase::SetUp();
        fs::remove(Hive("DRIVERS"));
        WriteFile(Hive("SYSTEM"), MinimalHive());
        MergeRegistry(Hive("SYSTEM"), "[\\Select]\n\"Current\"=dword:00000002\n\n"
                                      "[\\ControlSet002\\Services]\n\n");
    }
};

TEST_F(Windows7, HasNoDatabaseButDriversForItsBoot)
{
    servicing::DriverStore store(
        Root(), servicing::PlatformLog(folder_ / "log", servicing::LogLevel::Warning));
    const auto added = store.Add(MakeBootPackage("disk"), true);
    store.Save();
    EXPECT_TRUE(added.folder.filename().string().starts_with("disk.inf_amd64_neutral_"));
    EXPECT_EQ(ReadFile(In("Windows/System32/drivers/disk.sys")), "the driver of disk");
    EXPECT_EQ(Service("svcdisk", "Start"), "DW 0x0");
    const std::string devices = "ControlSet002\\Control\\CriticalDeviceDatabase";
    auto critical = Registry("SYSTEM", devices);
    EXPECT_EQ(critical["pci#cc_0200  service"], "SZ svcdisk");
    EXPECT_EQ(critical["pci#ven_1234&dev_disk  classguid"], std::string("SZ ") + kScsiAdapter);
    EXPECT_TRUE(Registry("SYSTEM", "DriverDatabase").empty());
    EXPECT_NE(ReadFile(folder_ / "log").find("it is not registered"), std::string::npos);
    Remove("oem0.inf");
    EXPECT_EQ(Service("svcdisk", "Start"), "");
    EXPECT_FALSE(Registry("SYSTEM", devices).contains("pci#cc_0200  service"));
    EXPECT_FALSE(fs::exists(added.folder));
}

} // namespace
} // namespace kestro::test
