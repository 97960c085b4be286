// disk_list_command.cpp - the disks of this machine.
#include "commands.h"
#include "disk_query.h"
#include "sizes.h"
#include "table.h"

namespace kestro::host {
namespace {

using nlohmann::json;

std::string CleanText(const DiskDetails& disk)
{
    const std::string refusal = disk.CleanRefusal();
    if (!refusal.empty())
        return "no: " + refusal;
    return disk.style == "-" ? "yes" : "yes; data on it needs --force";
}

json ToJson(const DiskDetails& disk)
{
    const std::string refusal = disk.CleanRefusal();
    return {{"name", disk.name},
            {"friendly_name", disk.friendlyName},
            {"size", disk.size},
            {"sector_size", disk.sectorSize},
            {"style", disk.style},
            {"state", disk.state},
            {"healthy", disk.healthy},
            {"read_only", disk.readOnly},
            {"system", disk.system},
            {"boot", disk.boot},
            {"pack", disk.pack},
            {"provider", disk.provider},
            {"can_be_cleaned", refusal.empty()},
            {"refusal", refusal}};
}

} // namespace

int DiskListCommand(const Context& context)
{
    json document = {{"command", "disk list"}, {"succeeded", true}, {"disks", json::array()}};
    int exitCode = kExitSuccess;
    try {
        std::vector<std::vector<std::string>> rows;
        for (const DiskDetails& disk : QueryDisks()) {
            document["disks"].push_back(ToJson(disk));
            rows.push_back({disk.name.empty() ? "-" : disk.name, SizeText(disk.size), disk.style,
                            disk.state + (disk.healthy ? "" : ", failing"), CleanText(disk)});
        }
        if (rows.empty())
            context.out->Line("The disk service knows no disk");
        else
            ShowTable(*context.out, {"NAME", "SIZE", "STYLE", "STATE", "CAN BE CLEANED"}, rows);
    } catch (const DiskServiceError& error) {
        json failure = CodeToJson(error.Code());
        failure["function"] = error.what();
        document["succeeded"] = false;
        document["failure"] = failure;
        context.out->Failed(error.what(), error.Code());
        exitCode = kExitFailed;
    }
    if (context.out->Json())
        context.out->Document(document);
    return exitCode;
}

} // namespace kestro::host
