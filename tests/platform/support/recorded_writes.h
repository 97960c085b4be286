// recorded_writes.h - what work does to the disk, one step after the other.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace kestro::test {

struct DiskStep {
    enum class Kind { Make, Write, Cut, Rename, Remove, Sync, SyncFolder };
    Kind kind;
    std::string path;              // of the file or folder, as it is called at that time
    std::string to;                // of a rename
    unsigned long long offset = 0; // of a write; where a file is cut
    std::string data;
};

// Runs the work in a process of its own; returns the steps that concern files below the folder.
std::vector<DiskStep> RunAndRecord(const std::function<void()>& work,
                                   const std::filesystem::path& folder);

} // namespace kestro::test
