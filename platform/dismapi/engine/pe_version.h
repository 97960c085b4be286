// pe_version.h - the version that a Windows program's resources tell.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace kestro::servicing {

// The four parts of the file version; nothing for what is no program or has no version.
std::optional<std::array<std::uint16_t, 4>> VersionOfProgram(std::string_view program);

} // namespace kestro::servicing
