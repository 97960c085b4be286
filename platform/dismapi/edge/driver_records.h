// driver_records.h - the API's records of packages and devices, as callers get them.
#pragma once

#include "catalog.h"
#include "driver_package.h"

#include "servicing_api.h"

#include <string>
#include <vector>

namespace kestro::servicing {

struct PackageInfo {
    std::string publishedName;
    std::string originalFileName; // a Windows path
    bool inBox = false;
    CatalogState signature = CatalogState::Missing;
    DriverPackage package;
};

// No text is null. The caller gives each result back with DismDelete.
DismDriverPackage* MakePackageRecords(const std::vector<PackageInfo>& packages);
DismDriver* MakeDriverRecords(const DriverPackage& package, Architecture architecture);

} // namespace kestro::servicing
