// driver_values.h - values of the driver database that Windows derives, each where it is known from.
#pragma once

#include "driver_registry.h"
#include "hive_values.h"

#include <string>
#include <vector>

namespace kestro::servicing {

// Which values a Windows writes was seen on single builds; the boundaries between them are taken to be
// at the releases that lie between.
bool HasFileSize(const ImageWindows& windows);
bool HasDeviceSettings(const ImageWindows& windows);
bool HasLockLevel(const DriverEntry& entry);
bool HasSubmissionId(const DriverEntry& entry);

// One of the package's own, beside the framework's.
bool HasCoInstaller(const DriverPackage& package);

std::string SignerNameOf(const DriverEntry& entry);
std::uint32_t SignerScoreOf(const DriverEntry& entry);
std::uint32_t StatusFlagsOf(const DriverEntry& entry);

std::uint32_t ConfigFlagsOf(const Configuration& configuration);
std::uint32_t ConfigScopeOf(const Configuration& configuration, const ImageWindows& windows);
std::vector<std::string> Win32ServicesOf(const Configuration& configuration,
                                         const ImageWindows& windows);

// The install sections of the package, in the order of its models.
std::vector<std::string> SectionsOf(const DriverPackage& package);

// The default value of a device property: a text, with a type that says so.
HiveValue PropertyText(const std::string& text);

} // namespace kestro::servicing
