// partition_table.cpp - what is on a disk: its MBR or GPT partitions.
#include "partition_table.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace kestro::vds {
namespace {

using DiskBytes = std::vector<std::uint8_t>;
using Guid = std::array<std::uint8_t, 16>;

template <class Number>
Number Little(const DiskBytes& bytes, std::size_t offset)
{
    Number value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i)
        value = static_cast<Number>(value | static_cast<Number>(bytes[offset + i]) << (8 * i));
    return value;
}

std::uint32_t Crc32(const std::uint8_t* data, std::size_t size)
{
    std::uint32_t crc = 0xFFFFFFFF;
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

// --- MBR ------------------------------------------------------------------------------------------

constexpr std::size_t kMbrSize = 512, kMbrSignature = 440, kMbrEntries = 446, kMbrEntrySize = 16;

enum MbrType : std::uint8_t { kUnused = 0x00, kProtective = 0xEE };

bool IsExtended(std::uint8_t type)
{
    return type == 0x05 || type == 0x0F || type == 0x85;
}

PartitionKind KindOfMbrType(std::uint8_t type)
{
    switch (type) {
    case 0x12: // configuration and diagnostics
    case 0x27: // recovery
    case 0x84: // hibernation
    case 0xA0: // hibernation, diagnostics
    case 0xDE: // Dell utility
    case 0xFE: // IBM service
        return PartitionKind::Oem;
    case 0x42:
        return PartitionKind::Dynamic;
    case 0xEF:
        return PartitionKind::Esp;
    default:
        return PartitionKind::Data;
    }
}

struct MbrEntry {
    std::uint8_t type;
    std::uint64_t start, sectors;
};

std::optional<std::vector<MbrEntry>> ReadMbr(RawDisk& disk, std::uint64_t offset)
{
    if (offset + kMbrSize > disk.Size())
        return {};
    const DiskBytes sector = disk.ReadBytes(offset, kMbrSize);
    if (sector[510] != 0x55 || sector[511] != 0xAA)
        return {};
    std::vector<MbrEntry> entries;
    for (std::size_t i = 0; i < 4; ++i) {
        const std::size_t entry = kMbrEntries + i * kMbrEntrySize;
        // A boot sector of a file system carries the same signature; its bytes are no entries.
        if ((sector[entry] & 0x7F) != 0)
            return {};
        entries.push_back({sector[entry + 4], Little<std::uint32_t>(sector, entry + 8),
                           Little<std::uint32_t>(sector, entry + 12)});
    }
    return entries;
}

void AddPartition(RawDisk& disk, PartitionTable& table, std::uint64_t start, const MbrEntry& entry)
{
    const Partition partition = {start * disk.SectorSize(), entry.sectors * disk.SectorSize(),
                                 KindOfMbrType(entry.type)};
    if (partition.offset < disk.Size())
        table.partitions.push_back(partition);
}

// Each logical partition has a table of its own, which also points to the next one.
void ReadLogical(RawDisk& disk, PartitionTable& table, std::uint64_t extended)
{
    constexpr int mostLogical = 128; // a damaged chain may run in a circle
    std::uint64_t current = extended;
    for (int i = 0; i < mostLogical; ++i) {
        const auto entries = ReadMbr(disk, current * disk.SectorSize());
        if (!entries)
            return;
        const MbrEntry& logical = entries->at(0);
        const MbrEntry& next = entries->at(1);
        if (logical.type != kUnused && logical.sectors != 0)
            AddPartition(disk, table, current + logical.start, logical);
        if (!IsExtended(next.type) || next.start == 0)
            return;
        current = extended + next.start;
    }
}

std::optional<PartitionTable> ReadMbrTable(RawDisk& disk, const std::vector<MbrEntry>& entries)
{
    PartitionTable table;
    table.style = PartitionStyle::Mbr;
    const DiskBytes signature = disk.ReadBytes(kMbrSignature, 4);
    std::copy(signature.begin(), signature.end(), table.id.begin());
    for (const MbrEntry& entry : entries) {
        if (IsExtended(entry.type))
            ReadLogical(disk, table, entry.start);
        else if (entry.type != kUnused && entry.sectors != 0)
            AddPartition(disk, table, entry.start, entry);
    }
    return table;
}

// --- GPT ------------------------------------------------------------------------------------------

// As they lie on the disk, with the first three fields in little-endian order.
constexpr Guid kEfiSystem = {0x28, 0x73, 0x2A, 0xC1, 0x1F, 0xF8, 0xD2, 0x11,
                             0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B};
constexpr Guid kMicrosoftReserved = {0x16, 0xE3, 0xC9, 0xE3, 0x5C, 0x0B, 0xB8, 0x4D,
                                     0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15, 0xAE};
constexpr Guid kRecovery = {0xA4, 0xBB, 0x94, 0xDE, 0xD1, 0x06, 0x40, 0x4D,
                            0xA1, 0x6A, 0xBF, 0xD5, 0x01, 0x79, 0xD6, 0xAC};
constexpr Guid kDynamicMetadata = {0xAA, 0xC8, 0x08, 0x58, 0x8F, 0x7E, 0xE0, 0x42,
                                   0x85, 0xD2, 0xE1, 0xE9, 0x04, 0x34, 0xCF, 0xB3};
constexpr Guid kDynamicData = {0xA0, 0x60, 0x9B, 0xAF, 0x31, 0x14, 0x62, 0x4F,
                               0xBC, 0x68, 0x33, 0x11, 0x71, 0x4A, 0x69, 0xAD};
constexpr std::uint64_t kPlatformRequired = 1; // attribute: the machine does not work without it

PartitionKind KindOfGptEntry(const Guid& type, std::uint64_t attributes)
{
    if (type == kEfiSystem)
        return PartitionKind::Esp;
    if (type == kMicrosoftReserved)
        return PartitionKind::Reserved;
    if (type == kRecovery || (attributes & kPlatformRequired) != 0)
        return PartitionKind::Oem;
    return type == kDynamicMetadata || type == kDynamicData ? PartitionKind::Dynamic
                                                            : PartitionKind::Data;
}

Guid GuidAt(const DiskBytes& bytes, std::size_t offset)
{
    Guid guid;
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), guid.size(), guid.begin());
    return guid;
}

std::optional<PartitionTable> ReadGpt(RawDisk& disk, std::uint64_t headerOffset)
{
    const std::uint64_t sector = disk.SectorSize();
    if (headerOffset + sector > disk.Size())
        return {};
    DiskBytes header = disk.ReadBytes(headerOffset, sector);
    const auto headerSize = Little<std::uint32_t>(header, 12);
    if (std::memcmp(header.data(), "EFI PART", 8) != 0 || headerSize < 92 || headerSize > sector)
        return {};
    const auto headerCrc = Little<std::uint32_t>(header, 16);
    std::fill_n(header.begin() + 16, 4, std::uint8_t{0});
    if (Crc32(header.data(), headerSize) != headerCrc)
        return {};

    const auto entriesSector = Little<std::uint64_t>(header, 72);
    const auto count = Little<std::uint32_t>(header, 80);
    const auto entrySize = Little<std::uint32_t>(header, 84);
    constexpr std::uint32_t mostEntries = 4096, largestEntry = 4096;
    if (entrySize < 128 || entrySize > largestEntry || count > mostEntries)
        return {};
    const std::uint64_t size = std::uint64_t{count} * entrySize;
    if (entriesSector > disk.Size() / sector || entriesSector * sector + size > disk.Size())
        return {};
    const DiskBytes entries = disk.ReadBytes(entriesSector * sector, size);
    if (Crc32(entries.data(), entries.size()) != Little<std::uint32_t>(header, 88))
        return {};

    PartitionTable table;
    table.style = PartitionStyle::Gpt;
    table.id = GuidAt(header, 56);
    for (std::size_t offset = 0; offset < entries.size(); offset += entrySize) {
        const Guid type = GuidAt(entries, offset);
        if (type == Guid{})
            continue;
        const auto first = Little<std::uint64_t>(entries, offset + 32);
        const auto last = Little<std::uint64_t>(entries, offset + 40);
        if (first > last || last >= disk.Size() / sector)
            continue;
        table.partitions.push_back(
            {first * sector, (last - first + 1) * sector,
             KindOfGptEntry(type, Little<std::uint64_t>(entries, offset + 48))});
    }
    return table;
}

} // namespace

bool PartitionTable::Holds(PartitionKind kind) const
{
    return std::any_of(partitions.begin(), partitions.end(),
                       [&](const Partition& partition) { return partition.kind == kind; });
}

PartitionTable ReadPartitionTable(RawDisk& disk)
{
    const std::uint64_t sector = disk.SectorSize();
    if (disk.Size() < 3 * sector)
        return {};
    const auto mbr = ReadMbr(disk, 0);
    const bool protective = mbr && std::any_of(mbr->begin(), mbr->end(), [](const MbrEntry& entry) {
                                return entry.type == kProtective;
                            });
    if (protective || !mbr) {
        if (auto table = ReadGpt(disk, sector))
            return *table;
        if (auto table = ReadGpt(disk, (disk.Size() / sector - 1) * sector))
            return *table;
    }
    if (mbr)
        if (auto table = ReadMbrTable(disk, *mbr))
            return *table;
    return {};
}

} // namespace kestro::vds
