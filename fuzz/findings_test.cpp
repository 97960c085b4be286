// findings_test.cpp - inputs that broke the engine, and what it answers now.
#include "catalog.h"
#include "driver_database.h"
#include "hive_file.h"
#include "minimal_hive.h"
#include "mount_record.h"
#include "refusal.h"
#include "scratch.h"
#include "upper_state.h"
#include "wim_file.h"

#include <cstring>
#include <sys/resource.h>

namespace kestro::fuzz {
namespace {

using servicing::MountRegistry;
namespace code = servicing::code;

TEST(Findings, ACatalogThatNamesSignedContentAndHoldsNone)
{
    const Scratch scratch;
    WriteFile(scratch / "package.cat", "\x30\x0B\x06\x09\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02");
    WriteFile(scratch / "package.inf", "");
    EXPECT_EQ(
        servicing::CheckCatalog(scratch / "package.cat", {{scratch / "package.inf", "package.inf"}})
            .state,
        servicing::CatalogState::NotSigned);
}

std::string Record(const std::string& index, const std::string& size, const std::string& directory)
{
    return R"({"image": "/nonexistent/image.wim", "imageIdentity": [0, 0, ""], "index": )" + index +
           R"(, "directory": ")" + directory + R"(", "directoryIdentity": [0, 0, )" + size +
           R"(, 0], "readOnly": false, "status": "mounted"})";
}

TEST(Findings, ARecordWithANumberThatItsFieldCannotHold)
{
    const Scratch scratch;
    const fs::path record = scratch / "records/0/record.json";
    const MountRegistry registry(scratch / "records");
    const auto find = [&] { registry.FindDirectory("/nonexistent/mount"); };
    WriteFile(record, Record("4294967295", "-9223372036854775808", "/nonexistent/mount"));
    EXPECT_CODE(find(), code::ok);
    for (const char* index : {"1e300", "1.5", "-1", "4294967296", "true", "\"1\""}) {
        WriteFile(record, Record(index, "0", "/nonexistent/mount"));
        EXPECT_CODE(find(), code::mount_damaged) << index;
    }
    WriteFile(record, Record("1", "9223372036854775808", "/nonexistent/mount"));
    EXPECT_CODE(find(), code::mount_damaged);
}

TEST(Findings, ANextRecordOfAnotherDirectory)
{
    const Scratch scratch;
    WriteFile(scratch / "records/0/record.json", Record("1", "0", "/nonexistent/mount"));
    WriteFile(scratch / "records/0/next.json", Record("1", "0", "/nonexistent/other"));
    EXPECT_CODE(MountRegistry(scratch / "records").FindDirectory("/nonexistent/mount"),
                code::mount_damaged);
}

// What holds "a/b" was looked for above itself for ever.
TEST(Findings, AStateWithAPathThatLeadsOutOfTheMount)
{
    const std::string end(1, '\0'), upperEnd(3, '\0');
    const auto tree = [&](const std::string& path) {
        return servicing::TreeStateFromText("f 1 1 1 1 1 " + path + end);
    };
    const auto upper = [&](const std::string& path) {
        return servicing::UpperStateFromText("upper 2\nf- 1 1 1 1 1 " + path + upperEnd);
    };
    EXPECT_EQ(tree("/a").size(), 1U);
    EXPECT_EQ(upper("/a").size(), 1U);
    for (const char* const path : {"a/b", "/a/../../b", "/..", "/./a", "/a/", "//a", "/", ""}) {
        EXPECT_CODE(tree(path), code::not_a_valid_mount) << path;
        EXPECT_CODE(upper(path), code::not_a_valid_mount) << path;
    }
}

// It took gigabytes of memory and a minute to be refused.
TEST(Findings, AnImageFileThatSaysItHoldsMoreImagesThanItsSizeAllows)
{
    const Scratch scratch;
    std::string wim = ReadFile(KESTRO_FUZZ_CORPUS "/image/none.wim");
    ASSERT_EQ(wim.substr(44, 4), std::string("\1\0\0\0", 4));
    wim.replace(44, 4, "\x41\xE0\x68\x6D");
    WriteFile(scratch / "image.wim", wim);
    rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    const rlimit small = {rlim_t{1} << 30, limit.rlim_max};
    setrlimit(RLIMIT_AS, &small);
    EXPECT_CODE(
        servicing::WimFile(scratch / "image.wim", servicing::WimFile::Access::Read, false, {}),
        code::bad_format);
    setrlimit(RLIMIT_AS, &limit);
}

// It was read from nowhere.
TEST(Findings, ARegistryValueWhoseNameIsNotUtf8)
{
    const Scratch scratch;
    WriteFile(scratch / "DRIVERS", test::MinimalHive());
    servicing::HiveFile hive(scratch / "DRIVERS");
    EXPECT_CODE(hive.Set(hive.Make(""), {servicing::NumberValue("caf\xE9", 1)}),
                code::invalid_parameter);
    EXPECT_CODE(hive.Make("caf\xE9"), code::invalid_parameter);
}

// A hive with one package in it, of which single words are then changed.
class DamagedHive : public testing::Test {
  protected:
    DamagedHive()
    {
        servicing::DriverPackage package;
        package.className = "Net";
        package.classGuid = "{4d36e972-e325-11ce-bfc1-08002be10318}";
        package.provider = "Maker";
        servicing::DriverModel model;
        model.hardwareId = "PCI\\VEN_1234";
        model.installSection = "Install.NT";
        package.models = {model};
        package.configurations.resize(1);
        package.configurations[0].section = "Install.NT";
        const servicing::ImageWindows windows;
        servicing::DriverEntry entry;
        entry.package = &package;
        entry.windows = &windows;
        entry.published = "oem0.inf";
        entry.folder = "card.inf_amd64_0123";
        entry.storedInf = "card.inf";
        WriteFile(scratch_ / "minimal", test::MinimalHive());
        servicing::HiveFile hive(scratch_ / "minimal");
        servicing::DriverDatabase(hive, servicing::DriverDatabase::Part::System).Register(entry);
        hive.Save(scratch_ / "hive");
        bytes_ = ReadFile(scratch_ / "hive");
    }

    // Where the record of a key or value with that name begins; its name is its last field.
    std::size_t Key(const std::string& name) const { return Record(name, "nk", 0x50); }
    std::size_t Value(const std::string& name) const { return Record(name, "vk", 0x18); }
    std::uint32_t Word(std::size_t at) const
    {
        std::uint32_t word;
        std::memcpy(&word, bytes_.data() + at, sizeof word);
        return word;
    }
    void Put(std::size_t at, std::uint32_t word)
    {
        std::memcpy(bytes_.data() + at, &word, sizeof word);
    }
    void ExpectRefused(std::size_t at, std::uint32_t word)
    {
        Put(at, word);
        WriteFile(scratch_ / "hive", bytes_);
        EXPECT_CODE(servicing::HiveFile(scratch_ / "hive").CheckForChanges({"DriverDatabase"}),
                    code::bad_hive);
    }
    static constexpr std::size_t kBins = 0x1000;
    static constexpr std::uint32_t kInUse = 0x80000000; // cells that are free have a positive size

  private:
    std::size_t Record(const std::string& name, const std::string& id, std::size_t header) const
    {
        for (auto at = bytes_.find(name); at != std::string::npos; at = bytes_.find(name, at + 1))
            if (bytes_.compare(at - header + 4, 2, id) == 0 && Word(at - header) >= kInUse)
                return at - header;
        ADD_FAILURE() << "no " << id << " record named " << name;
        return 0;
    }

    Scratch scratch_;
    std::string bytes_;
};

TEST_F(DamagedHive, AKeyThatIsItsOwnSubkey)
{
    const std::size_t key = Key("DriverDatabase");
    const std::size_t list = kBins + Word(key + 0x20);
    ExpectRefused(list + 8, static_cast<std::uint32_t>(key - kBins));
}

TEST_F(DamagedHive, TwoValuesWithTheSameData)
{
    ExpectRefused(Value("InfName") + 0xC, Word(Value("Provider") + 0xC));
}

TEST_F(DamagedHive, AValueWithDataThatIsNowhere)
{
    ExpectRefused(Value("InfName") + 0xC, 0x00FFFFF8);
}

TEST_F(DamagedHive, AKeyWithAClassNameThatIsNowhere)
{
    const std::size_t key = Key("Install.NT");
    Put(key + 0x4C, Word(key + 0x4C) | 2 << 16); // one character of it
    ExpectRefused(key + 0x34, 0x00FFFFF8);
}

TEST_F(DamagedHive, AKeyWithFewerSubkeysThanItSays)
{
    const std::size_t count = Key("DriverDatabase") + 0x18;
    ExpectRefused(count, Word(count) + 1);
}

} // namespace
} // namespace kestro::fuzz
