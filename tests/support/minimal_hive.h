// minimal_hive.h - the smallest registry hive that tools accept: a root key and nothing in it. Hive
// libraries change hives and make none, so tests begin with this one.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace kestro::test {

// A header block, then one bin with three cells: the root key, its security descriptor, free space.
inline std::string MinimalHive()
{
    constexpr std::size_t block = 4096;
    constexpr std::uint32_t none = 0xFFFFFFFF;
    std::string hive(2 * block, '\0');
    const auto text = [&](std::size_t at, const char* value) {
        std::memcpy(&hive[at], value, std::strlen(value));
    };
    const auto number = [&](std::size_t at, std::uint32_t value) {
        for (int byte = 0; byte < 4; ++byte)
            hive[at + static_cast<std::size_t>(byte)] = static_cast<char>(value >> 8 * byte & 0xFF);
    };

    text(0, "regf");
    number(4, 1); // the two sequence numbers are equal: nothing waits in a log
    number(8, 1);
    number(0x14, 1); // version 1.5
    number(0x18, 5);
    number(0x20, 1); // loaded from memory
    constexpr std::uint32_t root = 0x20;
    constexpr std::uint32_t rootSize = 0x60;
    constexpr std::uint32_t security = root + rootSize;
    constexpr std::uint32_t securitySize = 0x30;
    constexpr std::uint32_t free = security + securitySize;
    number(0x24, root);
    number(0x28, block); // bytes in bins
    number(0x2C, 1);

    text(block, "hbin");
    number(block + 8, block);

    // Cells in use have a negative size.
    const std::size_t key = block + root;
    number(key, 0 - rootSize);
    text(key + 4, "nk");
    hive[key + 6] = 0x2C; // root, not to be deleted, name in one byte a character
    for (const std::size_t field : {0x14, 0x20, 0x24, 0x2C, 0x34})
        number(key + field, none); // no parent, subkeys, values or class
    number(key + 0x30, security);
    hive[key + 0x4C] = 4;
    text(key + 0x50, "ROOT");

    const std::size_t descriptor = block + security;
    number(descriptor, 0 - securitySize);
    text(descriptor + 4, "sk");
    number(descriptor + 8, security); // a ring of one
    number(descriptor + 12, security);
    number(descriptor + 16, 1);
    number(descriptor + 20, 20);
    hive[descriptor + 24] = 1; // an empty self-relative descriptor
    hive[descriptor + 27] = '\x80';

    number(block + free, block - free);

    std::uint32_t sum = 0;
    for (std::size_t at = 0; at < 0x1FC; at += 4) {
        std::uint32_t value = 0;
        std::memcpy(&value, &hive[at], sizeof value);
        sum ^= value;
    }
    number(0x1FC, sum);
    return hive;
}

} // namespace kestro::test
