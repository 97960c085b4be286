// inf_target.cpp - the INF of a driver package, and the package's way into the driver store.
#include "driver_store.h"
#include "inf_package.h"
#include "minimal_hive.h"
#include "scratch.h"
#include "targets.h"

#include <algorithm>

namespace kestro::fuzz {
namespace {

using servicing::Architecture;
using servicing::DriverPackage;
using servicing::DriverStore;
using servicing::ImageWindows;
using servicing::ServicingError;

bool StaysBelow(const std::string& path)
{
    for (const auto& part : fs::path(path))
        if (part == ".." || part.empty() || part.string().size() > 200)
            return false;
    return !path.empty() && path.front() != '/' && path.size() < 1000;
}

// The files that a package names exist, those that it must not reach as well.
void MakeSource(const DriverPackage& package)
{
    const fs::path folder = package.inf.parent_path();
    WriteFile(folder.parent_path() / "outside.sys", "outside");
    std::size_t most = 16;
    for (const auto& file : package.files) {
        std::error_code taken;
        const fs::path path = folder / file.Path();
        if (most-- == 0 || !StaysBelow(file.Path()) || fs::exists(path, taken) || taken)
            continue;
        fs::create_directories(path.parent_path(), taken);
        if (!taken)
            WriteFile(path, "a driver");
    }
}

// What installs a package may lie anywhere in the image; what was needed to get it there may not.
bool IsForDrivers(const std::string& path)
{
    return !path.starts_with("Windows/System32/DriverStore/kestro-change");
}

void AddAndRemove(const Scratch& scratch, const DriverPackage& package)
{
    const fs::path image = scratch / "image";
    const auto before = Below(scratch.Folder());
    try {
        DriverStore store(image);
        const auto added = store.Add(package, true);
        Require(added.published == "oem0.inf" && !added.alreadyThere, "the first package is oem0");
        store.Save();
        for (const auto& path : Below(scratch.Folder()))
            Require(before.count(path) || (path.starts_with("image/") &&
                                           IsForDrivers(path.substr(sizeof "image/" - 1))),
                    "an added package stays in its places, unlike " + path);
        Require(store.Add(package, true).alreadyThere, "the same package is known again");
        store.Remove(added.published, &package);
        store.Save();
        Require(!fs::exists(added.folder), "a removed package is gone");
    } catch (const ServicingError&) {
        Require(Below(scratch.Folder()) == before, "a package that is refused leaves nothing");
    }
}

} // namespace

void Inf(const std::string& input)
{
    const Scratch scratch;
    fs::create_directories(scratch / "image/Windows/INF");
    for (const char* hive : {"SYSTEM", "DRIVERS", "SOFTWARE"})
        WriteFile(scratch / "image/Windows/System32/config" / hive, test::MinimalHive());
    const fs::path file = scratch / "source/package.inf";
    WriteFile(file, input);
    DriverPackage package;
    try {
        // An INF may include itself.
        servicing::InfLibrary library(scratch / "image");
        const auto inf = servicing::InfFile::Open(file, 0x409);
        servicing::ImageWindows windows;
        windows.architecture = Architecture::X86;
        windows.major = 6;
        windows.minor = 1;
        ReadPackage(inf, windows, library);
        package = ReadPackage(inf, ImageWindows(), library);
    } catch (const ServicingError&) {
        return;
    }
    package.inf = file;
    package.origin = "Z:\\source";
    MakeSource(package);
    AddAndRemove(scratch, package);
}

} // namespace kestro::fuzz
