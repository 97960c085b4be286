// image_hives.cpp - the registry hives of an offline image that a driver package is written into.
#include "image_hives.h"

#include "driver_registry.h"
#include "image_tree.h"

#include <cstdio>

namespace fs = std::filesystem;

namespace kestro::servicing {

ImageHives::ImageHives(fs::path root) : root_(std::move(root)) {}

// CurrentControlSet is made when Windows starts; the file has numbered ones.
static std::string CurrentSet(const HiveFile& system)
{
    const auto current = system.Value(system.Find("Select"), "Current");
    char name[32];
    std::snprintf(name, sizeof name, "ControlSet%03u", current ? NumberOf(*current) : 1u);
    return name;
}

HiveFile* ImageHives::Open(const std::string& name)
{
    const auto known = hives_.find(name);
    if (known != hives_.end())
        return known->second.get();
    const fs::path file = PathInImage(root_, "Windows/System32/config/" + name);
    std::unique_ptr<HiveFile> hive;
    if (fs::exists(file)) {
        hive = std::make_unique<HiveFile>(file);
        if (name == "SYSTEM") {
            controlSet_ = CurrentSet(*hive);
            hive->CheckForChanges({kDatabaseKey, controlSet_});
        } else {
            hive->CheckForChanges({name == "DRIVERS" ? kDatabaseKey : kLockdownKey});
        }
    }
    return (hives_[name] = std::move(hive)).get();
}

const std::string& ImageHives::ControlSet()
{
    System();
    return controlSet_;
}

bool ImageHives::HasDriverDatabase()
{
    return Drivers() || (System() && System()->Find(kDatabaseKey));
}

void ImageHives::Stage(ImageChange& change)
{
    for (const auto& [name, hive] : hives_) {
        if (!hive || hive->Changes() == 0)
            continue;
        const fs::path staged = change.NewPath();
        hive->Save(staged);
        fs::permissions(staged, fs::status(hive->Path()).permissions());
        change.Place(staged, hive->Path(), ImageChange::Order::Hives);
    }
}

} // namespace kestro::servicing
