// mounts_command.cpp - what is mounted, and clearing away what is broken.
#include "direct_command.h"
#include "paths.h"
#include "table.h"

namespace kestro::host {
namespace {

using nlohmann::json;

const char* NameOf(MountDetails::State state)
{
    switch (state) {
    case MountDetails::State::Ok:
        return "ok";
    case MountDetails::State::NeedsRemount:
        return "needs remount";
    case MountDetails::State::Invalid:
        break;
    }
    return "invalid";
}

// Of a mount whose record is damaged not everything is known.
std::string ShownOrUnknown(const std::string& path)
{
    return path.empty() ? "(unknown)" : Shown(path);
}

json ToJson(const MountDetails& mount)
{
    return {{"directory", Shown(mount.directory)},
            {"image", Shown(mount.image)},
            {"index", mount.index},
            {"read_only", mount.readOnly},
            {"state", NameOf(mount.state)}};
}

} // namespace

int MountsCommand(const Context& context, bool clean)
{
    return RunDirectly(context, "mounts", [&](const Servicing& servicing, json& document) {
        document["mounts"] = json::array();
        document["cleared"] = 0;
        std::vector<MountDetails> mounts = servicing.Mounts();
        if (clean) {
            const std::size_t before = mounts.size();
            servicing.CleanUpMounts();
            mounts = servicing.Mounts();
            const std::size_t cleared = before - std::min(before, mounts.size());
            document["cleared"] = cleared;
            context.out->Line("Cleared away " + std::to_string(cleared) + " of " +
                              std::to_string(before) + " mounts");
        }
        std::vector<std::vector<std::string>> rows;
        for (const MountDetails& mount : mounts) {
            document["mounts"].push_back(ToJson(mount));
            rows.push_back({NameOf(mount.state), mount.readOnly ? "read-only" : "read-write",
                            mount.index == 0 ? "-" : std::to_string(mount.index),
                            ShownOrUnknown(mount.directory), ShownOrUnknown(mount.image)});
        }
        if (rows.empty())
            context.out->Line("Nothing is mounted");
        else
            ShowTable(*context.out, {"STATE", "MODE", "INDEX", "DIRECTORY", "IMAGE"}, rows);
    });
}

} // namespace kestro::host
