// driver_store_removal.cpp - takes what a package installed in an offline Windows tree away again.
#include "driver_source.h"
#include "driver_store_state.h"
#include "driver_unreflection.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace kestro::servicing {

void DriverStore::RemoveReflected(const std::string& published, const DriverPackage* described)
{
    DriverUnreflection unreflection(
        change_->hives, [&](const std::string& name) { return RegisteredFolder(name); });
    const auto slashes = [](std::string path) {
        std::replace(path.begin(), path.end(), '\\', '/');
        return path;
    };
    const Unreflected result = unreflection.Remove(published, described);
    for (const auto& file : result.files)
        change_->files.Remove(PathInImage(root_, slashes(file)));
    for (const auto& file : result.handed) {
        const fs::path now = Now(Repository() / file.folder);
        const auto source = now.empty() ? std::nullopt : FindPath(now, slashes(file.source));
        if (source)
            change_->files.CopyTo(*source, PathInImage(root_, slashes(file.path)));
    }
    for (const auto& service : result.bootServices)
        log_.Warning(published + ": its service " + service +
                     " started with the boot; the image may not start without it");
    if (!described)
        return;
    bool shared = false;
    for (const auto& database : change_->Databases())
        shared = shared || database.HasClass(described->classGuid, published);
    if (!shared)
        unreflection.RemoveClass(*described);
}

} // namespace kestro::servicing
