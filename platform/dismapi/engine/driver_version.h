// driver_version.h - the Version value of a registered package.
#pragma once

#include "driver_package.h"

#include <string>

namespace kestro::servicing {

// The processor architecture, the class, the date and the version, 48 bytes. The first start of the
// image and DISM compare them.
std::string VersionRecord(const DriverPackage& package, Architecture architecture);

// A GUID's text as its 16 bytes in memory; zeros if it is malformed.
std::string GuidBytes(const std::string& text);

} // namespace kestro::servicing
