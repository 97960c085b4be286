// driver_reflection.h - what of a package is installed in an offline image, beside being staged.
#pragma once

#include "driver_registry.h"
#include "image_hives.h"

#include <set>
#include <string>
#include <vector>

namespace kestro::servicing {

// A file of the package and where Windows has it.
struct ReflectedFile {
    SourceFile source;
    std::string path;        // below the system drive, '\' between its parts
    std::uint32_t flags = 0; // COPYFLG_ bits
};

// Packages whose class the boot needs are installed when they are added: their services and files have
// to be there before the first device is found.
class DriverReflection {
  public:
    explicit DriverReflection(ImageHives& hives) : hives_(hives) {}

    // Files that leave the package's folder.
    static std::vector<ReflectedFile> FilesOf(const DriverEntry& entry);
    // The packages that have put the file there.
    std::vector<std::string> OwnersOf(const ReflectedFile& file) const;

    // `files` are those that are copied.
    void Write(const DriverEntry& entry, const std::vector<ReflectedFile>& files);
    // Windows 7 and earlier find the driver of the boot disk there.
    void WriteCriticalDevices(const DriverEntry& entry);
    // A class that the image does not know yet is described by the package.
    void WriteNewClass(const DriverPackage& package);
    // What the INF says of services and classes and is not done: keys outside of the control set.
    const std::set<std::string>& LeftOut() const { return leftOut_; }

  private:
    using Key = HiveFile::Key;

    bool IsOwn(const DriverEntry& entry, const ServiceInstall& service) const;
    void WriteService(const DriverEntry& entry, const ServiceInstall& service);
    void WriteDirectives(const DriverEntry& entry, Key key, const ServiceInstall& service);
    void WriteEventLog(const EventLog& log);
    void WriteLockdown(const DriverEntry& entry, const ReflectedFile& file);
    void Apply(Key hkr, const std::vector<RegistrySetting>& settings);
    Key MakeInSet(const std::string& path);

    ImageHives& hives_;
    std::set<std::string> leftOut_;
};

// `owners` with or without the package, in the value Owners of a service or file.
void AddOwner(HiveFile& hive, HiveFile::Key key, const std::string& published);

} // namespace kestro::servicing
