// package_text.h - a driver package's details as the host shows them.
#pragma once

#include "output.h"

namespace kestro::host {

const char* SignatureName(PackageDetails::Signature signature);
nlohmann::json PackageJson(const PackageDetails& package);

} // namespace kestro::host
