// programs.h - the tests that bring their own doubles, and what the library prints.
#ifndef KESTRO_CHECK_PROGRAMS_H
#define KESTRO_CHECK_PROGRAMS_H

#include <filesystem>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

namespace kestro::check {

struct Folders {
    std::filesystem::path check, work; // the unpacked check, and where it may write
};

using Progress = std::function<void(const std::string& what)>;

// One record for each test program: how many tests, and which failed with what message.
nlohmann::ordered_json RunTestPrograms(const Folders& folders, const Progress& progress);

// One record for each call whose printed lines are known to the byte.
nlohmann::ordered_json CompareWhatIsPrinted(const Folders& folders);

} // namespace kestro::check

#endif
