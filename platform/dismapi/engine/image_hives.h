// image_hives.h - the registry hives of an offline image that a driver package is written into.
#pragma once

#include "hive_file.h"
#include "image_change.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace kestro::servicing {

// A hive is opened when it is first asked for, with what its logs hold, and stays open: changes of
// several packages gather in memory until Stage.
class ImageHives {
  public:
    explicit ImageHives(std::filesystem::path root);

    // Null where the image has no such hive.
    HiveFile* System() { return Open("SYSTEM"); }
    HiveFile* Drivers() { return Open("DRIVERS"); }
    HiveFile* Software() { return Open("SOFTWARE"); }

    // The key of SYSTEM that the next start takes for CurrentControlSet: "ControlSet001".
    const std::string& ControlSet();
    // Windows 8 and later keep one, in SYSTEM and DRIVERS together.
    bool HasDriverDatabase();
    bool HasRegistry() { return System() || Drivers(); }

    // Has every changed hive put in the place of the image's.
    void Stage(ImageChange& change);

  private:
    HiveFile* Open(const std::string& name);

    std::filesystem::path root_;
    std::map<std::string, std::unique_ptr<HiveFile>> hives_;
    std::string controlSet_;
};

} // namespace kestro::servicing
