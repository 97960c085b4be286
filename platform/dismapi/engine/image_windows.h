// image_windows.h - which Windows an offline image holds.
#pragma once

#include "image_tree.h"

#include <cstdint>
#include <map>
#include <string>

namespace kestro::servicing {

// What decides among the sections of an INF. A number that the image does not tell is 0.
struct ImageWindows {
    Architecture architecture = Architecture::Amd64;
    unsigned major = 0;
    unsigned minor = 0;
    unsigned build = 0;
    unsigned productType = 0;       // VER_NT_ value: 1 workstation, 2 domain controller, 3 server
    unsigned suiteMask = 0;         // VER_SUITE_ bits
    unsigned language = 0;          // of the installation: 0x409
    bool hasDriverDatabase = false; // Windows 8 and later
    // By the class's GUID, in lower case: what its key's BootCritical value says, Unset without one.
    enum class BootCritical { Unset, No, Yes };
    std::map<std::string, BootCritical> classes; // empty if the image lists no classes

    // Whether the packages of a class are needed before the system disk is there.
    bool IsBootCritical(const std::string& classGuid) const;
};

// From the image's registry, or else from its kernel. Throws for a registry that cannot be read.
ImageWindows ReadImageWindows(const std::filesystem::path& root);

} // namespace kestro::servicing
