// reflected_path.h - where an INF's directories are in an installed Windows.
#pragma once

#include "driver_install.h"
#include "image_tree.h"

#include <string>

namespace kestro::servicing {

// Whether an offline image tells where a directory is.
bool HasPlace(const DirectoryPath& place);

// The same on processors that run programs of one kind only: the directories of 32-bit programs are the
// usual ones there.
DirectoryPath OnArchitecture(const DirectoryPath& place, Architecture architecture);

// A path below the system drive, '\' between its parts: "Windows\System32\drivers\x.sys". Empty for a
// directory without a place, and for the drive itself. `folder` is the package's in the repository.
std::string PathOnDrive(const DirectoryPath& place, const std::string& folder);

// The same as texts of the registry name it: "%SystemRoot%\System32\x.exe".
std::string WithSystemRoot(const std::string& pathOnDrive, char separator);

// As a service's ImagePath names its program, by how early the service starts and what it is.
std::string ImagePathOf(const ServiceInstall& service, const std::string& folder);

constexpr bool IsKernelDriver(const ServiceInstall& service)
{
    constexpr std::uint32_t drivers = 0x0F; // kernel, file system, adapter, recogniser
    return (service.type & drivers) != 0;
}

constexpr bool IsWin32Service(const ServiceInstall& service)
{
    constexpr std::uint32_t programs = 0x30; // of its own process, of a shared one
    return (service.type & programs) != 0;
}

} // namespace kestro::servicing
