// marvin_hash.cpp - Marvin32, the checksum of registry log entries.
#include "marvin_hash.h"

#include <bit>

namespace kestro::servicing {

namespace {

struct State {
    std::uint32_t low, high;

    void Mix(std::uint32_t word)
    {
        low += word;
        high ^= low;
        low = std::rotl(low, 20) + high;
        high = std::rotl(high, 9) ^ low;
        low = std::rotl(low, 27) + high;
        high = std::rotl(high, 19);
    }
};

// Up to four bytes, the first one lowest.
std::uint32_t WordOf(std::string_view bytes)
{
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i)
        word |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])) << 8 * i;
    return word;
}

} // namespace

std::uint64_t MarvinHash(std::string_view data, std::uint64_t seed)
{
    State state{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32)};
    for (; data.size() >= 4; data.remove_prefix(4))
        state.Mix(WordOf(data.substr(0, 4)));
    state.Mix(WordOf(data) | std::uint32_t{0x80} << 8 * data.size());
    state.Mix(0);
    return std::uint64_t{state.high} << 32 | state.low;
}

} // namespace kestro::servicing
