// registry_text.h - a hive as hivexregedit, which is not ours, reads it.
#pragma once

#include "files.h"

#include <map>
#include <string>
#include <vector>

namespace kestro::test {

// Every value at and below a key, in words: "KEY  NAME" leads to "SZ text", "EX text", "MSZ text|text",
// "DW 0x1f", "QW 0x1f", "BIN 00ff", "NONE" or "0xffff0012 text". The default value's name is "@". A key
// without values is there with an empty name and an empty text. Keys are below `key`, names and keys in
// lower case. Empty if there is no such key.
using RegistryText = std::map<std::string, std::string>;
RegistryText ReadRegistry(const fs::path& hive, const std::string& key);

// The same from lines of "KEY  NAME  VALUE", for what is expected.
RegistryText Expected(const std::string& lines);

// One line for each value that differs; what `ignored` is part of does not count. Empty if nothing does.
std::string Differences(const RegistryText& actual, const RegistryText& expected,
                        const std::vector<std::string>& ignored = {});

// Merges text in the form of a .reg file, without its first line, into a hive.
void MergeRegistry(const fs::path& hive, const std::string& text);

} // namespace kestro::test
