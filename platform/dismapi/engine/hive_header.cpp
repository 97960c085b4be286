// hive_header.cpp - the first sector of a registry hive and of its logs.
#include "hive_header.h"

namespace kestro::servicing {

std::uint32_t HiveWord(std::string_view bytes, std::size_t offset)
{
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < 4 && offset + i < bytes.size(); ++i)
        word |= static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[offset + i])) << 8 * i;
    return word;
}

void SetHiveWord(std::string& bytes, std::size_t offset, std::uint32_t word)
{
    for (std::size_t i = 0; i < 4; ++i)
        bytes.at(offset + i) = static_cast<char>(word >> 8 * i);
}

static std::uint32_t Checksum(std::string_view bytes)
{
    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < hive_field::checksum; at += 4)
        sum ^= HiveWord(bytes, at);
    // These two are never stored.
    return sum == 0 ? 1 : sum == 0xFFFFFFFF ? 0xFFFFFFFE : sum;
}

bool IsHiveHeader(std::string_view bytes)
{
    return bytes.size() >= kHiveSector && bytes.starts_with("regf") &&
           HiveWord(bytes, hive_field::checksum) == Checksum(bytes);
}

void SetHiveChecksum(std::string& bytes)
{
    SetHiveWord(bytes, hive_field::checksum, Checksum(bytes));
}

} // namespace kestro::servicing
