// table_target.cpp - the partition table of a disk, and the clean that follows its reading.
#include "disk_clean.h"
#include "memory_disk.h"
#include "partition_table.h"
#include "scratch.h"
#include "targets.h"

#include <algorithm>

namespace kestro::fuzz {
namespace {

using vds::DiskError;
using vds::PartitionStyle;

void CheckTable(const vds::PartitionTable& table, const MemoryDisk& disk)
{
    Require(table.style != PartitionStyle::None || table.partitions.empty(),
            "a disk without a table has no partitions");
    for (const auto& partition : table.partitions) {
        Require(partition.offset < disk.Size(), "a partition begins on the disk");
        Require(table.style != PartitionStyle::Gpt ||
                    partition.size <= disk.Size() - partition.offset,
                "a GPT partition lies on the disk");
    }
}

void CleanAndCheck(MemoryDisk& disk, bool full, unsigned stopAt)
{
    unsigned last = 0;
    const auto code = Clean(disk, full, [&](unsigned percent) {
        Require(percent >= last && percent <= 100, "progress runs from 0 to 100");
        last = percent;
        return percent < stopAt;
    });
    Require(code == vds::code::ok || code == vds::code::cancelled, "a clean ends or is cancelled");
    Require(ReadPartitionTable(disk).style == PartitionStyle::None, "a cleaned disk has no table");
    Require(!full || code != vds::code::ok || disk.IsZero(), "a full clean leaves nothing");
}

} // namespace

// The first byte of an input chooses what the rest is: a bit each for the sector size, whether the
// checksums of a GPT are made to fit, whether the disk goes on behind the input, and a full clean. The
// other four say when the clean is cancelled.
void PartitionTable(const std::string& input)
{
    if (input.empty())
        return;
    const auto choice = static_cast<unsigned char>(input[0]);
    MemoryDisk disk(input.substr(1), choice & 1 ? 4096 : 512);
    if (choice & 2)
        disk.RepairChecksums();
    if (choice & 4)
        disk.Grow(3 << 20);
    try {
        const auto table = ReadPartitionTable(disk);
        CheckTable(table, disk);
        MayClean({}, table, {});
        Require(MayClean({}, table, {true, true, false}) == vds::code::ok,
                "force cleans every disk that may be cleaned");
        CleanAndCheck(disk, choice & 8, (choice >> 4) * 100 / 15 + 1);
    } catch (const DiskError&) {
        Require(false, "nothing outside the disk is read or written");
    }
}

} // namespace kestro::fuzz
