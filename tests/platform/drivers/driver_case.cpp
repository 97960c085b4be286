// driver_case.cpp - what the tests of the driver store share.
#include "driver_case.h"

#include "minimal_hive.h"

#include <cstdlib>

namespace kestro::test {

using servicing::DriverPackage;

void DriverCase::SetUp()
{
    std::string pattern = fs::temp_directory_path() / "kestro-drivers-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    for (const char* hive : {"SYSTEM", "DRIVERS", "SOFTWARE"})
        WriteFile(Hive(hive), MinimalHive());
    MergeRegistry(Hive("SYSTEM"), "[\\Select]\n\"Current\"=dword:00000002\n\n"
                                  "[\\ControlSet002\\Services]\n\n[\\DriverDatabase]\n\n");
    fs::create_directories(In("Windows/INF"));
    WriteFile(In("Windows/INF/usb.inf"), "an in-box INF");
}

void DriverCase::TearDown()
{
    fs::remove_all(folder_);
}

DriverPackage DriverCase::MakePackage(const std::string& name) const
{
    const fs::path source = folder_ / "source" / name;
    WriteFile(source / (name + ".inf"), "the INF of " + name);
    WriteFile(source / (name + ".sys"), "the driver of " + name);
    WriteFile(source / "x64/Helper.dll", "the helper of " + name);
    DriverPackage package;
    package.inf = source / (name + ".inf");
    package.className = "Net";
    package.classGuid = kNet;
    package.provider = "Maker of " + name;
    package.date = {2024, 2, 29};
    package.version = {1, 2, 3, 4};
    package.applies = true;
    package.files = {{"", name + ".sys"}, {"x64", "Helper.dll"}};
    servicing::DriverModel model;
    model.manufacturer = "Maker";
    model.description = "Card";
    model.hardwareId = "PCI\\VEN_1234&DEV_" + name;
    model.compatibleIds = {"PCI\\CC_0200"};
    model.installSection = "Install.NT";
    model.service = "svc" + name;
    model.manufacturerToken = "%maker%";
    model.descriptionToken = "Card";
    package.models = {model};
    package.modelStrings = {{"maker", "Maker"}};
    servicing::Configuration configuration;
    configuration.section = "Install.NT";
    configuration.service = "svc" + name;
    package.configurations = {configuration};
    package.origin = "Z:\\source\\" + name;
    return package;
}

DriverPackage DriverCase::MakeBootPackage(const std::string& name) const
{
    using servicing::RegistrySetting;
    DriverPackage package = MakePackage(name);
    package.className = "SCSIAdapter";
    package.classGuid = kScsiAdapter;
    package.bootCritical = true;
    servicing::ServiceInstall service;
    service.name = "svc" + name;
    service.flags = 2;
    service.type = 1;
    service.errorControl = 1;
    service.binary = {12, name + ".sys"};
    service.loadOrderGroup = "SCSI miniport";
    RegistrySetting bus;
    bus.root = "HKR";
    bus.key = "Parameters";
    bus.name = "BusType";
    bus.type = 4;
    bus.data = std::string("\1\0\0\0", 4);
    service.settings = {bus};
    bus.key = "";
    bus.name = "TypesSupported";
    service.eventLogs = {{"System", service.name, {bus}}};
    package.configurations[0].services = {service};
    package.configurations[0].copies = {{name + ".sys", {"", name + ".sys"}, {12, ""}}};
    return package;
}

servicing::AddResult DriverCase::Add(const DriverPackage& package, bool force) const
{
    servicing::DriverStore store(Root());
    const auto added = store.Add(package, force);
    store.Save();
    return added;
}

void DriverCase::Remove(const std::string& published, const DriverPackage* described) const
{
    servicing::DriverStore store(Root());
    store.Remove(published, described);
    store.Save();
}

void DriverCase::ExpectWhole(const servicing::AddResult& added, const std::string& name) const
{
    const std::string folder = added.folder.filename();
    EXPECT_EQ(ReadFile(In("Windows/INF/" + added.published)), "the INF of " + name);
    EXPECT_EQ(ReadFile(added.folder / (name + ".inf")), "the INF of " + name);
    EXPECT_EQ(ReadFile(added.folder / (name + ".sys")), "the driver of " + name);
    EXPECT_EQ(ReadFile(added.folder / "x64/Helper.dll"), "the helper of " + name);
    const bool boot =
        !Registry("SYSTEM", "DriverDatabase\\DriverInfFiles\\" + added.published).empty();
    auto database = Database(boot ? "SYSTEM" : "DRIVERS");
    EXPECT_EQ(database["driverinffiles\\" + added.published + "  active"], "SZ " + folder);
    EXPECT_EQ(database["driverpackages\\" + folder + "  @"], "SZ " + added.published);
    EXPECT_EQ(database["deviceids\\pci\\ven_1234&dev_" + name + "  " + added.published],
              "BIN 01ff0000");
}

void DriverCase::ExpectWholeBoot(const servicing::AddResult& added, const std::string& name) const
{
    ExpectWhole(added, name);
    EXPECT_EQ(ReadFile(In("Windows/System32/drivers/" + name + ".sys")), "the driver of " + name);
    EXPECT_EQ(Service("svc" + name, "Owners"), "MSZ " + added.published);
    EXPECT_EQ(Service("svc" + name + "\\Parameters", "BusType"), "DW 0x1");
    EXPECT_EQ(Service("EventLog\\System\\svc" + name, "TypesSupported"), "DW 0x1");
    EXPECT_EQ(
        Registry("SOFTWARE",
                 servicing::kLockdownKey)["%systemroot%/system32/drivers/" + name + ".sys  owners"],
        "MSZ " + added.published);
}

RegistryText DriverCase::Registry(const std::string& hive, const std::string& key) const
{
    RegistryText registry = ReadRegistry(Hive(hive), key);
    std::erase_if(registry, [](const auto& value) {
        return value.first.ends_with("  updatedate") || value.first.ends_with("  importdate");
    });
    return registry;
}

std::string DriverCase::Service(const std::string& service, const std::string& value) const
{
    return Registry("SYSTEM",
                    "ControlSet002\\Services\\" + service)[servicing::LowerCase("  " + value)];
}

// A hive without its times and without where in the file it has what.
static std::string DescribeHive(const fs::path& hive)
{
    return Shell("hivexml " + hive.string() +
                 " | sed 's/<mtime>[^<]*<.mtime>//g; s/<byte_run [^>]*>//g;"
                 " s/\\(key=\"\\(Import\\|Update\\)Date\"\\) value=\"[^\"]*\"/\\1/g'");
}

DriverCase::Files DriverCase::SnapshotOf(const fs::path& root)
{
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = fs::relative(entry.path(), root);
        const bool isHive = entry.path().parent_path().filename() == "config";
        files[path] = entry.is_directory() ? "a directory"
                      : isHive             ? DescribeHive(entry.path())
                                           : ReadFile(entry.path());
    }
    return files;
}

} // namespace kestro::test
