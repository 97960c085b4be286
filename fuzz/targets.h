// targets.h - the fuzz targets: each feeds one input to a part of the embedded platform.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::fuzz {

// What an input may cause is the part's documented error, which the target swallows. Any other
// exception leaves the target, and a broken promise ends the process.
void Catalog(const std::string& input);
void Hive(const std::string& input);
void HiveLog(const std::string& input);
void Image(const std::string& input);
void Inf(const std::string& input);
void MountRecord(const std::string& input);
void PartitionTable(const std::string& input);

} // namespace kestro::fuzz
