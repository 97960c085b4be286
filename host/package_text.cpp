// package_text.cpp - a driver package's details as the host shows them.
#include "package_text.h"
#include "paths.h"

namespace kestro::host {

const char* SignatureName(PackageDetails::Signature signature)
{
    switch (signature) {
    case PackageDetails::Signature::Signed:
        return "signed";
    case PackageDetails::Signature::Unsigned:
        return "unsigned";
    case PackageDetails::Signature::Unknown:
        break;
    }
    return "unknown";
}

nlohmann::json PackageJson(const PackageDetails& package)
{
    return {{"published_name", package.publishedName},
            {"original_file", Shown(package.originalFileName)},
            {"catalog", package.catalogFile},
            {"class", package.className},
            {"class_guid", package.classGuid},
            {"class_description", package.classDescription},
            {"provider", package.provider},
            {"date", package.date},
            {"version", package.version},
            {"in_box", package.inBox},
            {"boot_critical", package.bootCritical},
            {"signature", SignatureName(package.signature)}};
}

} // namespace kestro::host
