// driver_package.h - what the driver store knows of a package: the content of its INF as plain data.
// Texts are UTF-8.
#pragma once

#include "driver_install.h"
#include "image_tree.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace kestro::servicing {

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
    std::string installSection; // as found: the section of one of the package's configurations
    std::string service;
    // As the INF writes them, tokens in lower case ("%vendor%"), other text as it is.
    std::string manufacturerToken = {};
    std::string descriptionToken = {};
    std::uint8_t featureScore = 0xFF; // of the install section
};

// Whether a package has something for the image's Windows, and if not, why.
enum class Fit { Applies, OtherArchitecture, OtherWindows, NothingToInstall };

inline const char* TextOf(Fit fit)
{
    switch (fit) {
    case Fit::Applies:
        return "is for the image's Windows";
    case Fit::OtherArchitecture:
        return "has nothing for the image's processor architecture";
    case Fit::OtherWindows:
        return "has nothing for the image's version or edition of Windows";
    case Fit::NothingToInstall:
        break;
    }
    return "names neither devices nor anything else to install";
}

struct DriverPackage {
    std::filesystem::path inf;
    std::string className;
    std::string classGuid; // "{...}"
    std::string classDescription;
    std::string provider;
    std::string catalog; // name in [Version], empty if there is none
    DriverDate date;
    std::array<std::uint16_t, 4> version{};
    bool bootCritical = false; // by its class, as the image has it
    bool applies = false;      // fit is Fit::Applies
    Fit fit = Fit::NothingToInstall;
    std::vector<SourceFile> files;
    std::vector<DriverModel> models; // those for the image's Windows, else those for others
    // The install sections that these models name, in their order, each once.
    std::vector<Configuration> configurations;
    // The tokens that the models' texts use: names in lower case without '%', and their meaning.
    std::map<std::string, std::string> modelStrings;
    std::vector<RegistrySetting> classSettings; // of [ClassInstall32]; HKR is the class's key
    std::uint32_t osVersionFloor = 0; // major << 24 | minor << 16 | build; 0 without a version
    bool pnpLockdown = false;
    std::string extensionId; // "{...}" of an extension INF, else empty
    std::vector<std::string> excludedIds;
    std::map<std::string, std::string> strings;
    std::string origin; // folder the package came from, as a Windows path
};

} // namespace kestro::servicing
