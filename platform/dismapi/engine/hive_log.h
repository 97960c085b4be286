// hive_log.h - brings a registry hive up to date from its log files.
#pragma once

#include <filesystem>
#include <string>

namespace kestro::servicing {

// What a hive holds.
struct HiveContent {
    std::string bytes;
    bool fromLog = false; // the file itself holds less
};

// Windows writes changes into a hive's log (LOG1, LOG2 or LOG beside it) first, and into the hive later:
// until then the hive is marked, and the log holds the newest. This reads both, and changes no file. A
// hive that a later write leaves with equal sequence numbers has no use for its logs any more: Windows
// looks at them only while the numbers differ.
// Throws ServicingError for what is no hive, and for a marked hive without a log that fits it.
HiveContent ReadHive(const std::filesystem::path& file);

} // namespace kestro::servicing
