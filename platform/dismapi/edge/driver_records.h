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

// Each result is one block of memory, records first and their texts behind them, which the caller
// gives back with DismDelete. No text is null.
DismDriverPackage* MakePackageRecords(const std::vector<PackageInfo>& packages);
DismDriver* MakeDriverRecords(const DriverPackage& package, Architecture architecture);
DismString* MakeString(const std::string& text);

// False for memory that did not come from here or was given back already.
bool DeleteRecords(void* records);

} // namespace kestro::servicing
