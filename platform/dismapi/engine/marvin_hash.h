// marvin_hash.h - Marvin32, the checksum of registry log entries.
#pragma once

#include <cstdint>
#include <string_view>

namespace kestro::servicing {

// Both halves of the result, the first one in the low bits.
std::uint64_t MarvinHash(std::string_view data, std::uint64_t seed);

} // namespace kestro::servicing
