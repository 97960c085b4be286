// hive_target.cpp - the driver database in the registry of an image.
#include "driver_database.h"
#include "scratch.h"
#include "servicing_error.h"
#include "targets.h"

#include <cstring>
#include <filesystem>

namespace kestro::fuzz {
namespace {

using servicing::DriverDatabase;
using servicing::HiveFile;
using servicing::ServicingError;

constexpr char kPublished[] = "oem0.inf";

// A fuzzer does not guess the header's checksum, the XOR of the words before it.
std::string WithChecksum(std::string hive)
{
    constexpr std::size_t at = 0x1FC;
    if (hive.size() < at + 4)
        return hive;
    std::uint32_t checksum = 0;
    for (std::size_t offset = 0; offset < at; offset += 4) {
        std::uint32_t word;
        std::memcpy(&word, hive.data() + offset, 4);
        checksum ^= word;
    }
    std::memcpy(hive.data() + at, &checksum, 4);
    return hive;
}

servicing::DriverPackage Package()
{
    servicing::DriverPackage package;
    package.className = "Net";
    package.classGuid = "{4d36e972-e325-11ce-bfc1-08002be10318}";
    package.provider = "Maker";
    servicing::DriverModel model;
    model.hardwareId = "PCI\\VEN_1234";
    model.compatibleIds = {"PCI\\CC_0200"};
    model.installSection = "Install.NT";
    model.manufacturerToken = "%maker%";
    package.models = {model};
    package.modelStrings = {{"maker", "Maker"}};
    package.configurations.resize(1);
    package.configurations[0].section = "Install.NT";
    package.configurations[0].service = "card";
    return package;
}

void RequireSound(const std::filesystem::path& hive)
{
    bool sound = true;
    try {
        HiveFile(hive).CheckForChanges({servicing::kDatabaseKey});
    } catch (const ServicingError&) {
        sound = false;
    }
    Require(sound, "a saved hive is sound");
}

void Use(const Scratch& scratch)
{
    HiveFile hive(scratch / "hive");
    hive.CheckForChanges({servicing::kDatabaseKey});
    DriverDatabase database(hive, DriverDatabase::Part::System);
    database.Published();
    database.FolderOf("oem1.inf");
    const servicing::DriverPackage package = Package();
    const servicing::ImageWindows windows;
    servicing::DriverEntry entry;
    entry.package = &package;
    entry.windows = &windows;
    entry.published = kPublished;
    entry.folder = "card.inf_amd64_0123";
    entry.storedInf = "card.inf";
    database.Register(entry);
    database.WriteNumbers({0});
    hive.Save(scratch / "registered");
    RequireSound(scratch / "registered");
    HiveFile registered(scratch / "registered");
    DriverDatabase again(registered, DriverDatabase::Part::System);
    Require(again.FolderOf(kPublished) == entry.folder, "a registered package is known");
    again.Unregister(kPublished);
    again.Unregister("oem1.inf");
    again.WriteNumbers({});
    registered.Save(scratch / "unregistered");
    RequireSound(scratch / "unregistered");
    HiveFile unregistered(scratch / "unregistered");
    Require(!DriverDatabase(unregistered, DriverDatabase::Part::System).Knows(kPublished),
            "a package that was taken away is not known");
}

} // namespace

void Hive(const std::string& input)
{
    const Scratch scratch;
    const std::string content = WithChecksum(input);
    WriteFile(scratch / "hive", content);
    try {
        Use(scratch);
    } catch (const ServicingError&) {
    }
    Require(ReadFile(scratch / "hive") == content, "a hive that is opened stays as it is");
}

} // namespace kestro::fuzz
