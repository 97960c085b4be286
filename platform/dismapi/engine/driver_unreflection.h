// driver_unreflection.h - takes what a package installed in an offline image's registry away again.
#pragma once

#include "driver_package.h"
#include "image_hives.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

// What is to be done with the image's files after it.
struct Unreflected {
    struct Handed {
        std::string path;   // below the system drive, '\' between its parts
        std::string folder; // another owner's in the repository
        std::string source; // the file in that folder
    };
    std::vector<std::string> files;        // that have no owner any more
    std::vector<Handed> handed;            // that another package owns as well
    std::vector<std::string> bootServices; // that started with the boot and are gone
};

class DriverUnreflection {
  public:
    using FolderOf = std::function<std::optional<std::string>(const std::string& published)>;

    // `folderOf` tells the repository folder of a package, also of the one that goes.
    DriverUnreflection(ImageHives& hives, FolderOf folderOf)
        : hives_(hives), folderOf_(std::move(folderOf))
    {
    }

    Unreflected Remove(const std::string& published, const DriverPackage* described);
    // A class that only this package described.
    void RemoveClass(const DriverPackage& package);

  private:
    using Key = HiveFile::Key;

    void RemoveService(Key service, const DriverPackage* described, Unreflected& result);
    void RemoveEventLogs(const std::string& service, const DriverPackage* described);
    void RemoveCriticalDevices(const std::string& service);
    void HandOver(Key service, const std::string& from, const std::string& to);
    void RemoveLockdown(const std::string& published, Unreflected& result);
    Key InSet(const std::string& path);

    ImageHives& hives_;
    FolderOf folderOf_;
};

} // namespace kestro::servicing
