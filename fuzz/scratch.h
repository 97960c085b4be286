// scratch.h - files for one input, and the promises that an input must not break.
#pragma once

#include <filesystem>
#include <set>
#include <string>

namespace kestro::fuzz {

namespace fs = std::filesystem;

// A folder of its own, in memory where the system has such a place, that goes with the object.
class Scratch {
  public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    fs::path operator/(const std::string& name) const { return folder_ / name; }
    const fs::path& Folder() const { return folder_; }

  private:
    fs::path folder_;
};

void WriteFile(const fs::path& file, const std::string& content);
std::string ReadFile(const fs::path& file);
// Every path below the folder, relative to it. Links are listed and not followed.
std::set<std::string> Below(const fs::path& folder);

// Ends the process, with the reason on standard error, when the promise does not hold.
void Require(bool promise, const std::string& what);

} // namespace kestro::fuzz
