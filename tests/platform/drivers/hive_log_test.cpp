// hive_log_test.cpp - hives whose newest content is still in their logs, in both formats that Windows has
// written. hivexget tells what came of it.
#include "driver_case.h"
#include "hive_file.h"
#include "hive_header.h"
#include "marvin_hash.h"
#include "minimal_hive.h"

namespace code = kestro::servicing::code;
using namespace kestro::servicing;

namespace kestro::test {
namespace {

constexpr std::size_t kPage = 4096;

// A hive of two states: the older one is in the file, what the newer one has beyond it in the log.
class HiveLogs : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string pattern = fs::temp_directory_path() / "kestro-logs-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        hive_ = folder_ / "SYSTEM";
        WriteFile(hive_, MinimalHive());
        older_ = Change("Older");
        newer_ = Change("Newer");
        newest_ = Change("Newest");
    }
    void TearDown() override { fs::remove_all(folder_); }

    // The hive with one more key, and enough in it to need bins of its own.
    std::string Change(const std::string& key) const
    {
        HiveFile hive(hive_);
        hive.Set(hive.Make("Software\\" + key),
                 {TextValue("Name", key), BytesValue("Data", std::string(5000, key.front()))});
        hive.Save(folder_ / "changed");
        fs::rename(folder_ / "changed", hive_);
        return ReadFile(hive_);
    }
    // The older state as it is on disk when the log is written and the hive is not.
    std::string Marked() const
    {
        std::string hive = older_;
        SetHiveWord(hive, hive_field::sequence1, HiveWord(hive, hive_field::sequence2) + 1);
        SetHiveChecksum(hive);
        return hive;
    }
    static std::string LogHeader(const std::string& state, unsigned type, unsigned sequence)
    {
        std::string header = state.substr(0, kHiveSector);
        SetHiveWord(header, hive_field::type, type);
        SetHiveWord(header, hive_field::sequence1, sequence);
        SetHiveWord(header, hive_field::sequence2, sequence);
        SetHiveChecksum(header);
        return header;
    }
    static std::vector<std::size_t> ChangedPages(const std::string& from, const std::string& to)
    {
        std::vector<std::size_t> pages;
        for (std::size_t at = kHiveBins; at < to.size(); at += kPage)
            if (at >= from.size() || from.compare(at, kPage, to, at, kPage) != 0)
                pages.push_back(at - kHiveBins);
        return pages;
    }
    // What Windows 8.1 and later append to a log.
    static std::string Entry(const std::string& from, const std::string& to, unsigned sequence)
    {
        std::string entry = "HvLE" + std::string(36, '\0');
        std::string data;
        for (const std::size_t page : ChangedPages(from, to)) {
            entry += NumberBytes(page, 4) + NumberBytes(kPage, 4);
            data += to.substr(kHiveBins + page, kPage);
        }
        SetHiveWord(entry, 20, static_cast<unsigned>((entry.size() - 40) / 8));
        entry += data;
        entry.resize((entry.size() + kHiveSector - 1) / kHiveSector * kHiveSector);
        SetHiveWord(entry, 4, static_cast<unsigned>(entry.size()));
        SetHiveWord(entry, 12, sequence);
        SetHiveWord(entry, 16, HiveWord(to, hive_field::binsSize));
        constexpr std::uint64_t seed = 0x82EF4D887A4E55C5;
        entry.replace(24, 8, NumberBytes(MarvinHash(std::string_view(entry).substr(40), seed), 8));
        entry.replace(32, 8,
                      NumberBytes(MarvinHash(std::string_view(entry).substr(0, 32), seed), 8));
        return entry;
    }
    // What Windows 7 writes: the bitmap of 512-byte pages, then those pages.
    static std::string PagesLog(const std::string& from, const std::string& to)
    {
        std::string log = LogHeader(from, 1, 7);
        SetHiveWord(log, hive_field::binsSize, HiveWord(to, hive_field::binsSize));
        SetHiveChecksum(log);
        std::string bitmap((to.size() - kHiveBins) / kPage, '\0');
        std::string data;
        for (const std::size_t page : ChangedPages(from, to)) {
            bitmap[page / kPage] = '\xFF';
            data += to.substr(kHiveBins + page, kPage);
        }
        log += "DIRT" + bitmap;
        log.resize((log.size() + kHiveSector - 1) / kHiveSector * kHiveSector);
        return log + data;
    }
    void Write(const std::string& hive, const std::string& log1, const std::string& log2 = "") const
    {
        WriteFile(hive_, hive);
        WriteFile(folder_ / "SYSTEM.LOG1", log1);
        WriteFile(folder_ / "SYSTEM.LOG2", log2);
    }
    unsigned Next() const { return HiveWord(older_, hive_field::sequence2) + 1; }
    // What another tool finds in the saved hive.
    std::string Saved(const std::string& key) const
    {
        HiveFile(hive_).Save(folder_ / "saved");
        return Shell("hivexget " + (folder_ / "saved").string() + " '\\Software\\" + key +
                     "' Name 2>&1 || true");
    }
    void ExpectRefused() const { EXPECT_CODE(HiveFile{hive_}, code::bad_hive); }

    fs::path folder_;
    fs::path hive_;
    std::string older_, newer_, newest_;
};

TEST(Marvin, HashesAsPublished)
{
    EXPECT_EQ(MarvinHash("Marvin", 0xD53CD9CECD0893B7), 0x375A18D124E10A7Cu);
}

TEST_F(HiveLogs, EntriesAreReplayed)
{
    Write(Marked(), LogHeader(older_, 6, Next()) + Entry(older_, newer_, Next()));
    EXPECT_EQ(Saved("Newer"), "Newer\n");
    EXPECT_EQ(Saved("Older"), "Older\n");
}

TEST_F(HiveLogs, EntriesGoOnInTheOtherLog)
{
    const std::string first = LogHeader(older_, 6, Next()) + Entry(older_, newer_, Next());
    const std::string second =
        LogHeader(newer_, 6, Next() + 1) + Entry(newer_, newest_, Next() + 1);
    Write(Marked(), first, second);
    EXPECT_EQ(Saved("Newest"), "Newest\n");
    Write(Marked(), second, first);
    EXPECT_EQ(Saved("Newest"), "Newest\n");
}

TEST_F(HiveLogs, WhatALogHoldsOfEarlierRoundsIsPassedOver)
{
    const std::string log = LogHeader(older_, 6, Next()) + Entry(older_, newer_, Next());
    Write(Marked(), log + Entry(newer_, older_, Next() - 5));
    EXPECT_EQ(Saved("Newer"), "Newer\n");
    // And a log that was replayed long ago.
    Write(Marked(), LogHeader(older_, 6, Next() - 2) + Entry(newer_, newest_, Next() - 2), log);
    EXPECT_EQ(Saved("Newer"), "Newer\n");
    EXPECT_NE(Saved("Newest"), "Newest\n");
}

TEST_F(HiveLogs, PagesAreReplayed)
{
    Write(Marked(), PagesLog(older_, newer_));
    EXPECT_EQ(Saved("Newer"), "Newer\n");
    // The second log is taken where the first one is another write's.
    Write(Marked(), PagesLog(newest_, newer_), PagesLog(older_, newer_));
    EXPECT_EQ(Saved("Newer"), "Newer\n");
    EXPECT_EQ(Saved("Older"), "Older\n");
}

TEST_F(HiveLogs, AHeaderThatIsTornComesFromTheLog)
{
    std::string hive = Marked();
    hive[16] = static_cast<char>(hive[16] + 1);
    Write(hive, LogHeader(older_, 6, Next()) + Entry(older_, newer_, Next()));
    EXPECT_EQ(Saved("Newer"), "Newer\n");
    Write(hive, PagesLog(older_, newer_));
    EXPECT_EQ(Saved("Newer"), "Newer\n");
}

TEST_F(HiveLogs, AHiveThatIsWrittenHasNoUseForThem)
{
    Write(older_, LogHeader(older_, 6, Next()) + Entry(older_, newer_, Next()));
    EXPECT_NE(Saved("Newer"), "Newer\n");
    // A saved hive is written.
    Write(Marked(), LogHeader(older_, 6, Next()) + Entry(older_, newer_, Next()));
    HiveFile(hive_).Save(folder_ / "saved");
    const std::string saved = ReadFile(folder_ / "saved");
    EXPECT_EQ(HiveWord(saved, hive_field::sequence1), HiveWord(saved, hive_field::sequence2));
    EXPECT_GT(HiveWord(saved, hive_field::sequence1), Next());
    EXPECT_NE(saved.substr(hive_field::written, 8), older_.substr(hive_field::written, 8));
}

TEST_F(HiveLogs, ADamagedLogIsRefused)
{
    const std::string entries = LogHeader(older_, 6, Next()) + Entry(older_, newer_, Next()) +
                                Entry(newer_, newest_, Next() + 1);
    const std::size_t second = kHiveSector + HiveWord(entries, kHiveSector + 4);
    for (const std::size_t at :
         {std::size_t{60}, kHiveSector + 20, kHiveSector + 24, kHiveSector + 45, kHiveSector + 3000,
          second + 5, second + 24, entries.size() - 1}) {
        SCOPED_TRACE(at);
        std::string damaged = entries;
        damaged[at] = static_cast<char>(damaged[at] ^ 4);
        Write(Marked(), damaged);
        ExpectRefused();
    }
    Write(Marked(), entries.substr(0, entries.size() - 512));
    ExpectRefused();
    const std::string pages = PagesLog(older_, newer_);
    Write(Marked(), pages.substr(0, pages.size() - 512));
    ExpectRefused();
    Write(Marked(), "");
    ExpectRefused();
    Write("", entries);
    ExpectRefused();
}

} // namespace
} // namespace kestro::test
