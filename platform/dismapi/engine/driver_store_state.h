// driver_store_state.h - what a driver store gathers between two saves.
#pragma once

#include "driver_database.h"
#include "driver_store.h"
#include "image_change.h"
#include "image_hives.h"
#include "image_lock.h"

#include <functional>
#include <map>
#include <set>

namespace kestro::servicing {

struct DriverStore::Change {
    Change(const std::filesystem::path& root, const std::filesystem::path& windowsFolder,
           const std::filesystem::path& changeFolder)
        : lock(windowsFolder), files(root, changeFolder), hives(root),
          windows(ReadImageWindows(root))
    {
    }

    // The parts of the driver database that the image has.
    std::vector<DriverDatabase> Databases()
    {
        std::vector<DriverDatabase> databases;
        if (hives.HasDriverDatabase() && hives.System())
            databases.emplace_back(*hives.System(), DriverDatabase::Part::System);
        if (hives.Drivers())
            databases.emplace_back(*hives.Drivers(), DriverDatabase::Part::Drivers);
        return databases;
    }

    ImageLock lock;
    ImageChange files;
    ImageHives hives;
    ImageWindows windows;
    std::map<std::filesystem::path, std::set<std::string>> namesOnDisk; // in folders that were read
    bool began = false;                                                 // something was changed
    bool spoiled = false; // a failure left the hives with half a package
};

// A package that is in the image already.
struct DriverStore::Same {
    std::string published;
    std::string folder;
};

template <class Work>
void DriverStore::ChangeHives(const Work& work)
{
    const bool first = !change_->began;
    change_->began = true;
    try {
        work();
    } catch (...) {
        if (first)
            change_.reset();
        else
            change_->spoiled = true;
        throw;
    }
}

} // namespace kestro::servicing
