// files.h - files and commands of the native tests.
#pragma once

#include <filesystem>
#include <string>

namespace kestro::test {

namespace fs = std::filesystem;

// Runs a command, returns what it printed, and fails the test if the command failed.
std::string Shell(const std::string& command);
// The same for a command whose failure is the answer.
bool Succeeds(const std::string& command);

std::string ReadFile(const fs::path& path);
void WriteFile(const fs::path& path, const std::string& content);
// Bytes that do not compress, the same for the same seed.
std::string Noise(unsigned seed, std::size_t size);

} // namespace kestro::test
