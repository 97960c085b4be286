// program.h - one program, run to its end.
#ifndef KESTRO_CHECK_PROGRAM_H
#define KESTRO_CHECK_PROGRAM_H

#include <cstdint>
#include <filesystem>
#include <string>

namespace kestro::check {

struct Run {
    std::uint32_t exitCode = 0;
    bool ended = true; // false: it was stopped at the time limit
    std::string output;
};

// What the program writes to its standard output and error, and how it ended.
Run RunProgram(const std::filesystem::path& program, const std::wstring& arguments,
               const std::filesystem::path& folder, std::uint32_t seconds);

} // namespace kestro::check

#endif
