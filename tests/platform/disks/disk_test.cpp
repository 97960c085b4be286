// disk_test.cpp - partition tables as sfdisk writes them, and what a clean leaves as sfdisk and blkid
// see it.
#include "disk_clean.h"
#include "partition_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

namespace kestro::vds {
namespace {

namespace fs = std::filesystem;

// An image file, in memory until it is saved.
class MemoryDisk final : public RawDisk {
  public:
    MemoryDisk(std::size_t size, std::uint32_t sectorSize) : bytes_(size), sectorSize_(sectorSize)
    {
    }
    std::uint64_t Size() const override { return bytes_.size(); }
    std::uint32_t SectorSize() const override { return sectorSize_; }
    void Read(std::uint64_t offset, void* data, std::size_t size) override
    {
        Check(offset, size);
        std::memcpy(data, bytes_.data() + offset, size);
    }
    void Write(std::uint64_t offset, const void* data, std::size_t size) override
    {
        Check(offset, size);
        if (failAt != 0 && ++writes == failAt)
            throw DiskError("a write that fails");
        std::memcpy(bytes_.data() + offset, data, size);
    }
    void Flush() override {}

    std::vector<std::uint8_t>& Bytes() { return bytes_; }
    bool IsZero() const
    {
        return std::all_of(bytes_.begin(), bytes_.end(), [](auto byte) { return byte == 0; });
    }
    int failAt = 0, writes = 0;

  private:
    void Check(std::uint64_t offset, std::size_t size) const
    {
        if (offset > bytes_.size() || size > bytes_.size() - offset)
            throw DiskError("outside the disk");
    }
    std::vector<std::uint8_t> bytes_;
    std::uint32_t sectorSize_;
};

class Disks : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string pattern = fs::temp_directory_path() / "kestro-disks-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::string File() const { return folder_ / "disk.img"; }

    MemoryDisk Partitioned(const std::string& script, std::size_t megabytes = 16) const
    {
        const std::string file = File();
        std::ofstream(file).flush();
        fs::resize_file(file, megabytes << 20);
        const std::string command = "printf '" + script + "' | sfdisk -q " + file;
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        return Load(512);
    }
    MemoryDisk Load(std::uint32_t sectorSize) const
    {
        MemoryDisk disk(fs::file_size(File()), sectorSize);
        std::ifstream stream(File(), std::ios::binary);
        stream.read(reinterpret_cast<char*>(disk.Bytes().data()),
                    static_cast<std::streamsize>(disk.Bytes().size()));
        return disk;
    }
    void ExpectEmptyToOthers(MemoryDisk& disk) const
    {
        std::ofstream(File(), std::ios::binary)
            .write(reinterpret_cast<const char*>(disk.Bytes().data()),
                   static_cast<std::streamsize>(disk.Bytes().size()));
        EXPECT_NE(std::system(("sfdisk -d " + File() + " >/dev/null 2>&1").c_str()), 0);
        EXPECT_NE(std::system(("blkid -p " + File() + " >/dev/null 2>&1").c_str()), 0);
    }

    fs::path folder_;
};

std::vector<std::uint64_t> Offsets(const PartitionTable& table)
{
    std::vector<std::uint64_t> offsets;
    for (const Partition& partition : table.partitions)
        offsets.push_back(partition.offset);
    return offsets;
}

TEST_F(Disks, Gpt)
{
    MemoryDisk disk = Partitioned("label: gpt\\n2048,8192,U\\n10240,16384\\n");
    const PartitionTable table = ReadPartitionTable(disk);
    EXPECT_EQ(table.style, PartitionStyle::Gpt);
    EXPECT_EQ(Offsets(table), (std::vector<std::uint64_t>{2048 * 512, 10240 * 512}));
    EXPECT_EQ(table.partitions[0].kind, PartitionKind::Esp);
    EXPECT_EQ(table.partitions[1].kind, PartitionKind::Data);
    EXPECT_EQ(table.partitions[1].size, 16384u * 512);
    EXPECT_NE(table.id, (std::array<std::uint8_t, 16>{}));
}

// sfdisk takes a file's sectors for 512 bytes; a loop device can have others.
TEST_F(Disks, GptWithLargeSectors)
{
    std::ofstream(File()).flush();
    fs::resize_file(File(), 16 << 20);
    const std::string loop = folder_ / "loop";
    if (std::system(
            ("losetup -b 4096 -f --show " + File() + " >" + loop + " 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "there are no loop devices here";
    const std::string command = "device=$(cat " + loop +
                                "); printf 'label: gpt\\n256,1024\\n' | sfdisk -q $device; "
                                "result=$?; losetup -d $device; exit $result";
    ASSERT_EQ(std::system(command.c_str()), 0);
    MemoryDisk disk = Load(4096);
    const PartitionTable table = ReadPartitionTable(disk);
    EXPECT_EQ(table.style, PartitionStyle::Gpt);
    EXPECT_EQ(Offsets(table), (std::vector<std::uint64_t>{256 * 4096}));
    EXPECT_EQ(Clean(disk, false, [](unsigned) { return true; }), code::ok);
    ExpectEmptyToOthers(disk);
}

TEST_F(Disks, MbrWithLargeSectors)
{
    Partitioned("label: dos\\n2048,1024,7\\n");
    MemoryDisk disk = Load(4096);
    EXPECT_EQ(Offsets(ReadPartitionTable(disk)), (std::vector<std::uint64_t>{2048 * 4096}));
}

TEST_F(Disks, ADamagedGptIsReadFromItsBackup)
{
    MemoryDisk disk = Partitioned("label: gpt\\n2048,8192\\n");
    disk.Bytes()[512 + 60] ^= 1;
    EXPECT_EQ(Offsets(ReadPartitionTable(disk)), (std::vector<std::uint64_t>{2048 * 512}));
    // With both headers damaged, what the protective MBR says is left.
    disk.Bytes()[disk.Bytes().size() - 512 + 60] ^= 1;
    EXPECT_EQ(ReadPartitionTable(disk).style, PartitionStyle::Mbr);
}

TEST_F(Disks, MbrWithLogicalPartitions)
{
    MemoryDisk disk =
        Partitioned("label: dos\\n2048,8192,7\\n10240,16384,E\\n12288,4096\\n18432,4096\\n");
    const PartitionTable table = ReadPartitionTable(disk);
    EXPECT_EQ(table.style, PartitionStyle::Mbr);
    EXPECT_EQ(Offsets(table), (std::vector<std::uint64_t>{2048 * 512, 12288 * 512, 18432 * 512}));
}

TEST_F(Disks, OemPartitions)
{
    MemoryDisk mbr = Partitioned("label: dos\\n2048,8192,27\\n");
    EXPECT_TRUE(ReadPartitionTable(mbr).Holds(PartitionKind::Oem));
    EXPECT_FALSE(ReadPartitionTable(mbr).Holds(PartitionKind::Data));
    MemoryDisk recovery = Partitioned(
        "label: gpt\\nstart=2048,size=8192,type=DE94BBA4-06D1-4D40-A16A-BFD50179D6AC\\n");
    EXPECT_TRUE(ReadPartitionTable(recovery).Holds(PartitionKind::Oem));
    MemoryDisk required =
        Partitioned("label: gpt\\nstart=2048,size=8192,attrs=\"RequiredPartition\"\\n");
    EXPECT_TRUE(ReadPartitionTable(required).Holds(PartitionKind::Oem));
}

TEST_F(Disks, NothingThere)
{
    MemoryDisk blank(1 << 20, 512), tiny(1024, 512), none(0, 512);
    EXPECT_EQ(ReadPartitionTable(blank).style, PartitionStyle::None);
    EXPECT_EQ(ReadPartitionTable(tiny).style, PartitionStyle::None);
    EXPECT_EQ(ReadPartitionTable(none).style, PartitionStyle::None);
}

TEST_F(Disks, LogicalPartitionsInACircleEnd)
{
    MemoryDisk disk = Partitioned("label: dos\\n2048,28000,E\\n4096,4096\\n10240,4096\\n");
    // The second table points back to the first.
    const std::size_t second = (2048 + 8192 - 2048) * 512 + 446;
    disk.Bytes()[second + 16 + 4] = 0x05;
    disk.Bytes()[second + 16 + 8] = 1;
    EXPECT_LE(ReadPartitionTable(disk).partitions.size(), 200u);
}

// Any bytes are read without leaving the disk; MemoryDisk throws when they are not.
TEST_F(Disks, DamagedTablesAreReadWithoutLeavingTheDisk)
{
    const MemoryDisk good = Partitioned("label: gpt\\n2048,1024\\n", 3);
    std::mt19937 random(5);
    for (int round = 0; round < 2000; ++round) {
        MemoryDisk disk = good;
        for (int i = 0; i < 8; ++i)
            disk.Bytes()[random() % 2048] = static_cast<std::uint8_t>(random());
        EXPECT_NO_THROW(ReadPartitionTable(disk));
    }
}

// --- cleaning ----------------------------------------------------------------------------------------

std::int32_t May(MemoryDisk disk, const CleanFlags& flags, const DiskState& state = {})
{
    return MayClean(state, ReadPartitionTable(disk), flags);
}

TEST_F(Disks, WhatIsRefused)
{
    const MemoryDisk data = Partitioned("label: gpt\\n2048,8192\\n");
    EXPECT_EQ(May(data, {}), code::clean_with_data);
    EXPECT_EQ(May(data, {.force = true}), code::ok);
    const MemoryDisk oem = Partitioned("label: dos\\n2048,8192,27\\n10240,8192,7\\n");
    EXPECT_EQ(May(oem, {.force = true}), code::clean_with_oem);
    EXPECT_EQ(May(oem, {.forceOem = true}), code::clean_with_data);
    EXPECT_EQ(May(oem, {.force = true, .forceOem = true}), code::ok);
    for (const char* script : {"label: dos\\n2048,8192,42\\n",
                               "label: gpt\\n2048,8192,AF9B60A0-1431-4F62-BC68-3311714A69AD\\n",
                               "label: gpt\\n2048,8192,5808C8AA-7E8F-42E0-85D2-E1E90434CFB3\\n"}) {
        const MemoryDisk dynamic = Partitioned(script);
        EXPECT_EQ(May(dynamic, {}), code::dynamic_disk_not_empty);
        EXPECT_EQ(May(dynamic, {.force = true}), code::ok);
    }
    const MemoryDisk esp = Partitioned("label: gpt\\n2048,8192,U\\n");
    EXPECT_EQ(May(esp, {}), code::clean_with_data);
    EXPECT_EQ(May(esp, {.force = true}), code::ok);
    const MemoryDisk reserved =
        Partitioned("label: gpt\\n2048,8192,E3C9E316-0B5C-4DB8-817D-F92DF00215AE\\n");
    EXPECT_EQ(May(reserved, {}), code::ok);

    const MemoryDisk blank(1 << 20, 512);
    EXPECT_EQ(May(blank, {}), code::ok);
    EXPECT_EQ(May(blank, {}, {.online = false}), code::disk_offline);
    EXPECT_EQ(May(blank, {}, {.readOnly = true}), code::disk_read_only);
    EXPECT_EQ(May(blank, {}, {.boot = true}), code::clean_with_critical);
    EXPECT_EQ(May(blank, {}, {.system = true}), code::clean_with_critical);
}

TEST_F(Disks, ACleanTakesEveryStructureOff)
{
    for (const char* script : {"label: gpt\\n2048,8192\\n", "label: dos\\n2048,8192,7\\n"}) {
        MemoryDisk disk = Partitioned(script);
        disk.Bytes()[7 << 20] = 0x42; // data between the edges
        EXPECT_EQ(Clean(disk, false, [](unsigned) { return true; }), code::ok);
        EXPECT_EQ(ReadPartitionTable(disk).style, PartitionStyle::None);
        EXPECT_EQ(disk.Bytes()[7 << 20], 0x42);
        ExpectEmptyToOthers(disk);
    }
}

TEST_F(Disks, AFullCleanTakesEverythingOff)
{
    MemoryDisk disk = Partitioned("label: gpt\\n2048,8192\\n", 8);
    disk.Bytes()[5 << 20] = 0x42;
    unsigned last = 0;
    EXPECT_EQ(Clean(disk, true,
                    [&](unsigned percent) {
                        EXPECT_GE(percent, last);
                        last = percent;
                        return true;
                    }),
              code::ok);
    EXPECT_EQ(last, 100u);
    EXPECT_TRUE(disk.IsZero());
    MemoryDisk tiny(700 * 512, 512);
    tiny.Bytes()[600] = 1;
    EXPECT_EQ(Clean(tiny, true, [](unsigned) { return true; }), code::ok);
    EXPECT_TRUE(tiny.IsZero());
}

TEST_F(Disks, AFullCleanPassesOverWhatCannotBeWritten)
{
    MemoryDisk disk = Partitioned("label: gpt\\n2048,8192\\n", 8);
    disk.Bytes()[3 << 20] = disk.Bytes()[6 << 20] = 0x42;
    disk.failAt = 5; // both edges, then the stretches from the second on
    EXPECT_EQ(Clean(disk, true, [](unsigned) { return true; }), code::partially_cleaned);
    EXPECT_EQ(disk.Bytes()[3 << 20], 0x42);
    EXPECT_EQ(disk.Bytes()[6 << 20], 0);
}

TEST_F(Disks, AFullCleanCanBeCancelled)
{
    MemoryDisk disk = Partitioned("label: gpt\\n2048,8192\\n", 8);
    disk.Bytes()[7 << 20] = 0x42;
    disk.Bytes()[5 << 20] = 0x42;
    EXPECT_EQ(Clean(disk, true, [](unsigned percent) { return percent < 30; }), code::cancelled);
    EXPECT_EQ(disk.Bytes()[5 << 20], 0x42);
    EXPECT_EQ(ReadPartitionTable(disk).style, PartitionStyle::None);
}

// Whichever write is the last, no table can be restored from the front half-way.
TEST_F(Disks, ACleanThatIsCutOffLeavesNoBackupWithoutAFront)
{
    MemoryDisk disk = Partitioned("label: gpt\\n2048,8192\\n");
    disk.failAt = 2;
    EXPECT_THROW(Clean(disk, false, [](unsigned) { return true; }), DiskError);
    EXPECT_EQ(ReadPartitionTable(disk).style, PartitionStyle::Gpt);
    EXPECT_TRUE(std::all_of(disk.Bytes().end() - (1 << 20), disk.Bytes().end(),
                            [](auto byte) { return byte == 0; }));
}

} // namespace
} // namespace kestro::vds
