// disk_list_command.cpp - the disks of this machine.
#include "commands.h"
#include "sizes.h"
#include "table.h"

namespace kestro::host {
namespace {

using nlohmann::json;

const char* NameOf(DiskDetails::State state)
{
    switch (state) {
    case DiskDetails::State::Online:
        return "online";
    case DiskDetails::State::NotReady:
        return "not ready";
    case DiskDetails::State::NoMedia:
        return "no media";
    case DiskDetails::State::Offline:
        return "offline";
    case DiskDetails::State::Failed:
        return "failed";
    case DiskDetails::State::Missing:
        return "missing";
    case DiskDetails::State::Unknown:
        break;
    }
    return "unknown";
}

const char* NameOf(DiskDetails::Style style)
{
    switch (style) {
    case DiskDetails::Style::Mbr:
        return "MBR";
    case DiskDetails::Style::Gpt:
        return "GPT";
    case DiskDetails::Style::None:
        break;
    }
    return "-";
}

// Why the service refuses to clean the disk whatever is asked of it; empty when it does not.
std::string Refusal(const DiskDetails& disk)
{
    if (disk.state != DiskDetails::State::Online)
        return NameOf(disk.state);
    if (disk.readOnly)
        return "read-only";
    for (const auto& [holds, what] : {std::pair(disk.boot, "boot volume"),
                                      {disk.system, "system volume"},
                                      {disk.pageFile, "page file"},
                                      {disk.hibernation, "hibernation file"},
                                      {disk.crashDump, "crash dump file"}})
        if (holds)
            return std::string("holds the ") + what;
    return "";
}

std::string CleanText(const DiskDetails& disk)
{
    const std::string refusal = Refusal(disk);
    if (!refusal.empty())
        return "no: " + refusal;
    std::string needs;
    if (disk.holdsData)
        needs += "; data on it needs --force";
    if (disk.holdsOem)
        needs += "; an OEM partition needs --force-oem";
    return "yes" + needs;
}

json ToJson(const DiskDetails& disk)
{
    const std::string refusal = Refusal(disk);
    json needs = json::array();
    if (disk.holdsData)
        needs.push_back("--force");
    if (disk.holdsOem)
        needs.push_back("--force-oem");
    return {{"name", disk.name},
            {"friendly_name", disk.friendlyName},
            {"size", disk.size},
            {"sector_size", disk.sectorSize},
            {"style", NameOf(disk.style)},
            {"state", NameOf(disk.state)},
            {"healthy", disk.healthy},
            {"read_only", disk.readOnly},
            {"system", disk.system},
            {"boot", disk.boot},
            {"pack", disk.pack},
            {"provider", disk.provider},
            {"can_be_cleaned", refusal.empty()},
            {"refusal", refusal},
            {"needs", refusal.empty() ? needs : json::array()}};
}

} // namespace

int DiskListCommand(const Context& context)
{
    json document = {{"command", "disk list"}, {"succeeded", true}, {"disks", json::array()}};
    const DiskListing listing = ListDisks();
    if (listing.failure) {
        const auto& [function, code] = *listing.failure;
        document["succeeded"] = false;
        document["failure"] = CodeToJson(code);
        document["failure"]["function"] = function;
        context.out->Failed(function, code);
    }
    std::vector<std::vector<std::string>> rows;
    for (const DiskDetails& disk : listing.disks) {
        document["disks"].push_back(ToJson(disk));
        rows.push_back(
            {disk.name.empty() ? "-" : disk.name, SizeText(disk.size), NameOf(disk.style),
             std::string(NameOf(disk.state)) + (disk.healthy ? "" : ", failing"), CleanText(disk)});
    }
    if (!rows.empty())
        ShowTable(*context.out, {"NAME", "SIZE", "STYLE", "STATE", "CAN BE CLEANED"}, rows);
    else if (!listing.failure)
        context.out->Line("The disk service knows no disk");
    if (context.out->Json())
        context.out->Document(document);
    return listing.failure ? kExitFailed : kExitSuccess;
}

} // namespace kestro::host
