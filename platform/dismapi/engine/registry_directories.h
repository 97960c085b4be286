// registry_directories.h - puts directories into the registry settings of a driver package.
#pragma once

#include "driver_package.h"

namespace kestro::servicing {

// Windows puts a directory in the place of its code (%11%, %13%) in the texts that an INF writes into
// the registry. The package's own, 13, is known when the package has its folder in the repository.
// A text that Windows expands names %SystemRoot%, another C:\Windows.
DriverPackage WithDirectories(DriverPackage package, const std::string& folder);

} // namespace kestro::servicing
