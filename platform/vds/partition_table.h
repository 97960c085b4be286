// partition_table.h - what is on a disk: its MBR or GPT partitions.
#pragma once

#include "raw_disk.h"

#include <array>
#include <cstdint>
#include <vector>

namespace kestro::vds {

enum class PartitionStyle { None, Mbr, Gpt };

enum class PartitionKind {
    Data,     // holds a volume, or may hold one
    Dynamic,  // of a dynamic disk: holds volumes that may span disks
    Oem,      // the maker's own: recovery, diagnostics
    Esp,      // EFI system partition
    Reserved, // Microsoft reserved: nothing of a user's is in it
};

struct Partition {
    std::uint64_t offset = 0, size = 0; // in bytes
    PartitionKind kind = PartitionKind::Data;
};

struct PartitionTable {
    PartitionStyle style = PartitionStyle::None;
    std::vector<Partition> partitions;
    std::array<std::uint8_t, 16>
        id{}; // the GPT's GUID, or the MBR's signature in its first four bytes

    bool Holds(PartitionKind kind) const;
};

// Damaged structures are taken for what they still are: a GPT whose primary header is damaged is read
// from its backup, and an entry that lies outside the disk is passed over.
PartitionTable ReadPartitionTable(RawDisk& disk);

} // namespace kestro::vds
