// driver_package.h - what the driver store knows of a package: the content of its INF as plain data.
// Texts are UTF-8.
#pragma once

#include "image_tree.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kestro::servicing {

// A file that the INF names, below the INF's folder.
struct SourceFile {
    std::string folder; // with '/', empty for the INF's own folder
    std::string name;

    std::string Path() const { return folder.empty() ? name : folder + "/" + name; }
};

struct DriverDate {
    std::uint16_t year = 0;
    std::uint16_t month = 0;
    std::uint16_t day = 0;
};

// One line of a models section.
struct DriverModel {
    std::string architecture; // as decorated: "amd64"; empty without a decoration
    std::string manufacturer;
    std::string description;
    std::string hardwareId;
    std::vector<std::string> compatibleIds;
    std::string installSection; // with its decoration, as chosen for the architecture
    std::string service;
};

struct DriverPackage {
    std::filesystem::path inf;
    std::string className;
    std::string classGuid; // "{...}"
    std::string classDescription;
    std::string provider;
    std::string catalog; // name in [Version], empty if there is none
    DriverDate date;
    std::array<std::uint16_t, 4> version{};
    bool bootCritical = false;
    bool applies = false; // has something for the image's architecture
    std::vector<SourceFile> files;
    std::vector<DriverModel> models; // those for the image's architecture
    std::vector<std::string> excludedIds;
    std::map<std::string, std::string> strings;
    std::string origin; // folder the package came from, as a Windows path
};

} // namespace kestro::servicing
