// hive_target.cpp - the driver database in the registry of an image.
#include "driver_hive.h"
#include "scratch.h"
#include "servicing_error.h"
#include "targets.h"

#include <cstring>

namespace kestro::fuzz {
namespace {

using servicing::DriverHive;
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
    package.models = {
        {"amd64", "Maker", "Card", "PCI\\VEN_1234", {"PCI\\CC_0200"}, "Install.NT", "card"}};
    package.strings = {{"Maker", "Maker"}};
    return package;
}

void Use(const Scratch& scratch)
{
    DriverHive hive(scratch / "hive");
    hive.HasDatabase();
    hive.Knows(kPublished);
    hive.FolderOf("oem1.inf");
    const servicing::DriverPackage package = Package();
    hive.Register({&package, kPublished, "card.inf_amd64_0123", "card.inf", ""});
    hive.Save(scratch / "registered");
    DriverHive registered(scratch / "registered");
    registered.Knows(kPublished);
    registered.FolderOf(kPublished);
    registered.Unregister(kPublished);
    registered.Unregister("oem1.inf");
    registered.Save(scratch / "unregistered");
    DriverHive(scratch / "unregistered").Knows(kPublished);
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
