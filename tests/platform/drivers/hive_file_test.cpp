// hive_file_test.cpp - hives after many changes, read back with tools that are not ours.
#include "hive_file.h"

#include "files.h"
#include "hive_header.h"
#include "hive_layout.h"
#include "minimal_hive.h"
#include "refusal.h"
#include "registry_text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace kestro::test {
namespace {

namespace code = kestro::servicing::code;
using servicing::HiveCells;
using servicing::HiveFile;

class Hives : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string pattern = fs::temp_directory_path() / "kestro-hive-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        hive_ = folder_ / "SYSTEM";
        WriteFile(hive_, MinimalHive());
    }
    void TearDown() override { fs::remove_all(folder_); }

    template <class Work>
    void Change(const Work& work) const
    {
        HiveFile hive(hive_);
        hive.CheckForChanges({""});
        work(hive);
        hive.Save(hive_);
    }
    // The names of the keys below the only one that the root has, in the order of its list.
    std::vector<std::string> NamesBelow() const
    {
        std::istringstream in(Shell("hivexml " + hive_.string() +
                                    " | grep -o '<node name=\"[^\"]*' | cut -d'\"' -f2"));
        std::vector<std::string> names;
        for (std::string name; std::getline(in, name);)
            names.push_back(name);
        EXPECT_GE(names.size(), 2u);
        return {names.begin() + std::min<std::ptrdiff_t>(2, std::ssize(names)), names.end()};
    }

    fs::path folder_, hive_;
};

std::string NameOf(int number)
{
    char name[32];
    std::snprintf(name, sizeof name, "VEN_%04X", number * 7 % 3001);
    return name;
}

TEST_F(Hives, AKeyWithManySubkeys)
{
    constexpr int count = 3001;
    Change([](HiveFile& hive) {
        const auto parent = hive.Make("Ids");
        for (int i = 0; i < count; ++i)
            hive.Set(hive.MakeChild(parent, NameOf(i)), {servicing::NumberValue("n", 1)});
    });
    const auto names = NamesBelow();
    EXPECT_EQ(names.size(), static_cast<std::size_t>(count));
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    // A key and its value have 216 bytes, and its place in a list 8.
    EXPECT_LT(fs::file_size(hive_), 800'000u);
    // The key's own line is one more.
    EXPECT_EQ(ReadRegistry(hive_, "Ids").size(), std::size_t{count + 1});
    Change([](HiveFile& hive) {
        const auto parent = hive.Find("Ids");
        for (int i = 0; i < count; i += 2)
            hive.Remove(hive.Child(parent, NameOf(i)));
        EXPECT_EQ(hive.Children(parent).size(), std::size_t{count / 2});
    });
    EXPECT_EQ(NamesBelow().size(), std::size_t{count / 2});
    Change([](HiveFile& hive) { hive.Remove(hive.Find("Ids")); });
    EXPECT_TRUE(HiveFile(hive_).Children(HiveFile(hive_).Find("")).empty());
}

TEST_F(Hives, WhatWasFreedIsUsedAgain)
{
    const auto fill = [](HiveFile& hive) {
        for (int i = 0; i < 200; ++i)
            hive.Set(hive.Make("Package\\" + NameOf(i)),
                     {servicing::TextValue("text", std::string(100, 'a'))});
    };
    Change(fill);
    const auto size = fs::file_size(hive_);
    for (int round = 0; round < 5; ++round) {
        Change([](HiveFile& hive) { hive.Remove(hive.Find("Package")); });
        Change(fill);
    }
    EXPECT_EQ(fs::file_size(hive_), size);
    EXPECT_EQ(ReadRegistry(hive_, "Package").size(), 201u);
}

// Windows looks for a key in the order of upper case, where '_' comes after the letters.
TEST_F(Hives, KeysAreInTheOrderOfUpperCase)
{
    Change([](HiveFile& hive) {
        for (const char* name :
             {"a_b", "AAC", "\xC3\xA4", "b", "aaB", "A_A", "\xC3\x84z", "\xD0\xB6", "\xD0\x96\x31"})
            hive.Make(std::string("Names\\") + name);
        // Names are the same without regard to case in all alphabets; the dotless i is a letter of its own.
        for (const auto& [one, other] : std::vector<std::pair<std::string, std::string>>{
                 {"\xC3\xA4", "\xC3\x84"}, {"\xC5\x99", "\xC5\x98"}, {"\xCF\x82", "\xCE\xA3"}})
            EXPECT_EQ(hive.Make("Same\\" + one), hive.Make("Same\\" + other)) << one;
        EXPECT_NE(hive.Make("Same\\\xC4\xB1"), hive.Make("Same\\I"));
        hive.Remove(hive.Find("Same"));
    });
    EXPECT_EQ(NamesBelow(), (std::vector<std::string>{"aaB", "AAC", "A_A", "a_b", "b", "\xC3\xA4",
                                                      "\xC3\x84z", "\xD0\xB6", "\xD0\x96\x31"}));
}

TEST_F(Hives, AnOldHivesListsHaveHintsAndNoHashes)
{
    constexpr std::size_t minorVersion = 24;
    std::string old = MinimalHive();
    servicing::SetHiveWord(old, minorVersion, 3);
    servicing::SetHiveChecksum(old);
    WriteFile(hive_, old);
    Change([](HiveFile& hive) { hive.Make("Top\\Some Key"); });
    const std::string content = ReadFile(hive_);
    EXPECT_NE(content.find("Some", content.find("lf")), std::string::npos);
    EXPECT_EQ(NamesBelow(), std::vector<std::string>{"Some Key"});
}

TEST_F(Hives, ValuesOfEverySize)
{
    Change([](HiveFile& hive) {
        const auto key = hive.Make("Values");
        for (const std::size_t size : {0, 1, 4, 5, 200, 16344})
            hive.Set(key, {servicing::BytesValue(std::to_string(size), std::string(size, 'a'))});
        hive.Set(key, {servicing::BytesValue("200", "b"),
                       servicing::BytesValue("\xC3\xA4\xE2\x82\xAC", "c")});
        EXPECT_TRUE(hive.RemoveValue(key, "5"));
        EXPECT_CODE(hive.Set(key, {servicing::BytesValue("x", std::string(1'000'001, 'a'))}),
                    code::invalid_parameter);
    });
    const HiveFile hive(hive_);
    const auto value = [&](const std::string& name) {
        const auto found = hive.Value(hive.Find("Values"), name);
        return found ? found->data : "none";
    };
    EXPECT_EQ(value("0"), "");
    EXPECT_EQ(value("4"), "aaaa");
    EXPECT_EQ(value("5"), "none");
    EXPECT_EQ(value("200"), "b");
    EXPECT_EQ(value("16344"), std::string(16344, 'a'));
    EXPECT_EQ(value("\xC3\xA4\xE2\x82\xAC"), "c");
    auto registry = ReadRegistry(hive_, "Values");
    EXPECT_EQ(registry.size(), 6u);
    EXPECT_EQ(registry["  4"], "BIN 61616161");
    EXPECT_EQ(registry["  \xC3\xA4\xE2\x82\xAC"], "BIN 63");
}

// Windows stores what is larger than 16344 bytes in pieces; in hives of old versions it does not.
TEST_F(Hives, LargeValues)
{
    constexpr std::size_t minorVersion = 24;
    for (const std::uint32_t version : {5u, 3u}) {
        SCOPED_TRACE(version);
        std::string empty = MinimalHive();
        servicing::SetHiveWord(empty, minorVersion, version);
        servicing::SetHiveChecksum(empty);
        WriteFile(hive_, empty);
        for (const std::size_t size : {16345, 2 * 16344, 100'000}) {
            const std::string data = std::string(size - 1, 'a') + "z";
            Change([&](HiveFile& hive) {
                hive.Set(hive.Make("Values"), {servicing::BytesValue("large", data)});
            });
            EXPECT_TRUE(HiveFile(hive_).Value(HiveFile(hive_).Find("Values"), "LARGE")->data ==
                        data);
            std::string digits;
            for (const char c : data)
                digits += c == 'a' ? "61" : "7a";
            EXPECT_TRUE(ReadRegistry(hive_, "Values")["  large"] == "BIN " + digits);
            EXPECT_EQ(ReadFile(hive_).find("db", servicing::kHiveBins) != std::string::npos,
                      version == 5);
        }
        // All of its cells are free again.
        const auto size = fs::file_size(hive_);
        for (int round = 0; round < 3; ++round)
            Change([](HiveFile& hive) {
                const auto key = hive.Find("Values");
                hive.RemoveValue(key, "large");
                hive.Set(key, {servicing::BytesValue("large", std::string(100'000, 'b'))});
            });
        EXPECT_EQ(fs::file_size(hive_), size);
    }
}

TEST_F(Hives, FreeCellsThatLieTogetherBecomeOne)
{
    Change([](HiveFile& hive) {
        for (const char* name : {"1", "2", "3", "4"})
            hive.Set(hive.Make("Values"), {servicing::BytesValue(name, std::string(900, 'a'))});
    });
    const auto size = fs::file_size(hive_);
    Change([](HiveFile& hive) {
        for (const char* name : {"1", "2", "3", "4"})
            hive.RemoveValue(hive.Find("Values"), name);
    });
    Change([](HiveFile& hive) {
        hive.Set(hive.Find("Values"), {servicing::BytesValue("all", std::string(1700, 'a'))});
    });
    EXPECT_EQ(fs::file_size(hive_), size);
}

// Of what Windows accepts: a value without data that names a cell all the same, and a key without a class.
TEST_F(Hives, CellsThatNothingIsIn)
{
    using namespace servicing::hive_layout;
    Change([](HiveFile& hive) {
        hive.Set(hive.Make("Key"), {servicing::BytesValue("value", "12345")});
    });
    HiveCells cells(ReadFile(hive_), "a hive");
    const auto cellOf = [&](const char* id) {
        return static_cast<HiveCells::Cell>(cells.Content().rfind(id) - 4 - servicing::kHiveBins);
    };
    cells.PutWord(cellOf("vk"), value_field::length, 0);
    cells.PutWord(cellOf("vk"), value_field::data, HiveCells::kNone);
    cells.PutWord(cellOf("nk"), key_field::className, 0);
    WriteFile(hive_, cells.Finished(servicing::FileTimeNow()));
    Change([](HiveFile& hive) {
        EXPECT_EQ(hive.Value(hive.Find("Key"), "value")->data, "");
        hive.Remove(hive.Find("Key"));
    });
    EXPECT_TRUE(HiveFile(hive_).Children(HiveFile(hive_).Find("")).empty());
}

TEST_F(Hives, WhatWindowsWouldNotLoadIsNotChanged)
{
    const auto refused = [&](std::size_t at, std::uint32_t word) {
        std::string hive = MinimalHive();
        servicing::SetHiveWord(hive, at, word);
        servicing::SetHiveChecksum(hive);
        WriteFile(hive_, hive);
        EXPECT_CODE(Change([](HiveFile& file) { file.Make("Key"); }), code::bad_hive);
    };
    constexpr std::size_t minorVersion = 24, bin = servicing::kHiveBins;
    refused(minorVersion, 2);
    refused(minorVersion, 7);
    refused(bin + 4, 0x1000); // the bin's own place
    refused(bin + 8, 0x800);  // and its size
    // The first cell, of the root: not a multiple of 8.
    refused(bin + 0x20, 0 - 0x5Cu);
}

TEST_F(Hives, WhatLiesBehindTheLastBinIsNoPartOfIt)
{
    const std::string whole = MinimalHive();
    WriteFile(hive_, whole + std::string(5000, 'x'));
    Change([](HiveFile& hive) { hive.Make("Key"); });
    EXPECT_EQ(fs::file_size(hive_), whole.size());
    std::string shorter = ReadFile(hive_);
    servicing::SetHiveWord(shorter, servicing::hive_field::binsSize, 0);
    servicing::SetHiveChecksum(shorter);
    WriteFile(hive_, shorter);
    EXPECT_CODE(HiveFile{hive_}, code::bad_hive);
    WriteFile(hive_, whole.substr(0, whole.size() - 8));
    EXPECT_CODE(Change([](HiveFile& hive) { hive.Make("Key"); }), code::bad_hive);
}

TEST_F(Hives, NamesThatAHiveCannotHold)
{
    Change([](HiveFile& hive) {
        EXPECT_CODE(hive.Make(std::string(256, 'a')), code::invalid_name);
        EXPECT_CODE(hive.Make("\xFF"), code::invalid_parameter);
        hive.Make(std::string(255, 'a'));
    });
    EXPECT_EQ(HiveFile(hive_).Children(HiveFile(hive_).Find("")).size(), 1u);
}

} // namespace
} // namespace kestro::test
