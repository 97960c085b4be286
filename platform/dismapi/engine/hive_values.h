// hive_values.h - registry values as a hive stores them.
#pragma once

#include "driver_package.h"

#include <hivex.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kestro::servicing {

// Each sets one value of a key and keeps the others; an empty name is the default value.
void SetText(hive_h* hive, hive_node_h key, const std::string& name, const std::string& text);
void SetTexts(hive_h* hive, hive_node_h key, const std::string& name,
              const std::vector<std::string>& texts);
void SetNumber(hive_h* hive, hive_node_h key, const std::string& name, std::uint32_t number);
void SetBytes(hive_h* hive, hive_node_h key, const std::string& name, const std::string& bytes);

std::string BytesOf(hive_h* hive, hive_node_h key, const std::string& name);
// The first text of a REG_SZ or REG_MULTI_SZ value; empty if there is no such value.
std::string TextOf(hive_h* hive, hive_node_h key, const std::string& name);
// Removes one value of a key; true if it was there.
bool RemoveValue(hive_h* hive, hive_node_h key, const std::string& name);

// The `Version` value of a registered package: a header, the class, the date and the version.
std::string VersionRecord(const DriverPackage& package);
// 100 ns steps since 1601, little-endian, as FILETIME values are stored.
std::string FileTimeBytes(std::uint64_t secondsSince1970);

} // namespace kestro::servicing
