// driver_store_test.cpp - adding packages to an offline tree and removing them, natively.
#include "driver_case.h"
#include "mount_point.h"

namespace code = kestro::servicing::code;

namespace kestro::test {
namespace {

using Drivers = DriverCase;

TEST_F(Drivers, AnAddedPackageIsInEveryPlace)
{
    const auto added = Add("card");
    EXPECT_EQ(added.published, "oem0.inf");
    EXPECT_FALSE(added.alreadyThere);
    EXPECT_TRUE(added.folder.filename().string().starts_with("card.inf_amd64_"));
    EXPECT_EQ(added.folder.filename().string().size(), std::string("card.inf_amd64_").size() + 16);
    ExpectWhole(added, "card");
    EXPECT_FALSE(fs::exists(In("Windows/System32/DriverStore/kestro-change")));
}

TEST_F(Drivers, TheRegistryTellsWhatTheInfSays)
{
    const std::string package = "DriverPackages\\" + Add("card").folder.filename().string();
    EXPECT_EQ(Value(package, "InfName"), "card.inf");
    EXPECT_EQ(Value(package, "OemPath"), "Z:\\source\\card");
    EXPECT_EQ(Value(package, "Provider"), "Maker of card");
    EXPECT_EQ(Value(package + "\\Configurations\\Install.NT", "Service"), "svccard");
    EXPECT_EQ(Value(package + "\\Descriptors\\PCI\\VEN_1234&DEV_card", "Manufacturer"), "Maker");
    EXPECT_EQ(Value("DeviceIds\\PCI\\VEN_1234&DEV_card", "oem0.inf").substr(0, 1), "\x01");
    EXPECT_EQ(Value("DeviceIds\\PCI\\CC_0200", "oem0.inf").substr(0, 1), "\x02");
    // 0x00FF0900'00000000, the class, 2024-02-29 as FILETIME, 4.3.2.1, zeros.
    const std::string version = Shell("printf 'cd \\\\DriverDatabase\\%s\\nlsval\\n' '" + package +
                                      "' | hivexsh " + Hive().string() + " | grep Version");
    EXPECT_EQ(version,
              "\"Version\"=hex(3):00,00,00,00,00,09,ff,00,72,e9,36,4d,25,e3,ce,11,bf,c1,08,"
              "00,2b,e1,03,18,00,00,e9,3c,a2,6a,da,01,04,00,03,00,02,00,01,00,00,00,00,00,"
              "00,00,00,00\n");
}

TEST_F(Drivers, TheSamePackageAgainIsNoDuplicate)
{
    const auto first = Add("card");
    const auto before = Snapshot();
    const auto second = Add("card");
    EXPECT_TRUE(second.alreadyThere);
    EXPECT_EQ(second.published, first.published);
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(Drivers, OneChangedByteIsAnotherPackage)
{
    const auto first = Add("card");
    auto package = MakePackage("card");
    WriteFile(folder_ / "source/card/x64/Helper.dll", "the helper, newer");
    const auto second = Store().Add(package, true);
    EXPECT_FALSE(second.alreadyThere);
    EXPECT_EQ(second.published, "oem1.inf");
    EXPECT_NE(second.folder, first.folder);
}

TEST_F(Drivers, TheLowestFreeNumberIsTaken)
{
    Add("a"), Add("b"), Add("c");
    Store().Remove("oem1.inf");
    EXPECT_EQ(Add("d").published, "oem1.inf");
    EXPECT_EQ(Add("e").published, "oem3.inf");
    // A number of which only the catalog is left is not free.
    WriteFile(In("Windows/System32/CatRoot/{F750E6C3-38EE-11D1-85E5-00C04FC295EE}/oem4.cat"), "");
    EXPECT_EQ(Add("f").published, "oem5.inf");
    EXPECT_EQ(Value("", "OemInfMap"), std::string("\x2F"));
}

TEST_F(Drivers, AnImageWithoutAHiveNeedsNone)
{
    fs::remove(Hive());
    const auto added = Add("card");
    EXPECT_EQ(ReadFile(In("Windows/INF/oem0.inf")), "the INF of card");
    EXPECT_EQ(ReadFile(added.folder / "card.sys"), "the driver of card");
    EXPECT_FALSE(fs::exists(Hive()));
    Store().Remove("oem0.inf");
    EXPECT_FALSE(fs::exists(added.folder));
}

TEST_F(Drivers, FoldersAreFoundInAnySpelling)
{
    fs::rename(In("Windows"), In("WINDOWS"));
    fs::rename(In("WINDOWS/INF"), In("WINDOWS/Inf"));
    Add("card");
    EXPECT_TRUE(fs::exists(In("WINDOWS/Inf/oem0.inf")));
    EXPECT_FALSE(fs::exists(In("Windows")));
}

TEST_F(Drivers, RemovingTakesEveryTraceAway)
{
    const auto keys = [&] {
        return Keys("DriverInfFiles") + Keys("DriverPackages") + Keys("DeviceIds");
    };
    Add("stays");
    const auto before = Snapshot();
    const auto keysBefore = keys();
    const auto added = Add("goes");
    Store().Remove(added.published);
    EXPECT_EQ(keys(), keysBefore);
    EXPECT_EQ(Value("", "OemInfMap"), "\x01");
    auto after = Snapshot();
    auto expected = before;
    after.erase("Windows/System32/config/DRIVERS");
    expected.erase("Windows/System32/config/DRIVERS");
    EXPECT_EQ(after, expected);
    EXPECT_CODE(Store().Remove(added.published), code::file_not_found);
}

TEST_F(Drivers, AFolderThatTwoPackagesShareStaysWithTheOther)
{
    const auto added = Add("card");
    fs::copy(In("Windows/INF/oem0.inf"), In("Windows/INF/oem7.inf"));
    Store().Remove("oem0.inf");
    EXPECT_TRUE(fs::exists(added.folder));
    Store().Remove("OEM7.INF");
    EXPECT_FALSE(fs::exists(added.folder));
}

// --- refusals, which change nothing ------------------------------------------------------------------

class RefusedDrivers : public DriverCase {
  protected:
    void ExpectRefused(const servicing::DriverPackage& package, servicing::Code expected,
                       bool force = true) const
    {
        const auto before = Snapshot();
        EXPECT_CODE(Store().Add(package, force), expected);
        EXPECT_EQ(Snapshot(), before);
    }
};

TEST_F(RefusedDrivers, Unsigned)
{
    auto package = MakePackage("card");
    ExpectRefused(package, code::package_unsigned, false);
    package.catalog = "card.cat";
    ExpectRefused(package, code::package_unsigned, false);
    WriteFile(folder_ / "source/card/card.cat", "no catalog");
    ExpectRefused(package, code::package_unsigned, false);
}

TEST_F(RefusedDrivers, SignedForAnotherInf)
{
    auto package = MakePackage("card");
    package.catalog = "card.cat";
    fs::copy(fs::path(KESTRO_FIXTURES) / "drivers/tidepool/ftdibus.cat",
             folder_ / "source/card/card.cat");
    ExpectRefused(package, code::file_not_in_catalog, false);
    EXPECT_FALSE(Store().Add(package, true).alreadyThere);
}

TEST_F(RefusedDrivers, AFileIsMissing)
{
    const auto package = MakePackage("card");
    fs::remove(folder_ / "source/card/x64/Helper.dll");
    ExpectRefused(package, code::file_not_found);
}

TEST_F(RefusedDrivers, AnotherArchitecture)
{
    auto package = MakePackage("card");
    package.applies = false;
    ExpectRefused(package, code::not_supported);
}

TEST_F(RefusedDrivers, WithoutAClass)
{
    auto package = MakePackage("card");
    package.className.clear();
    ExpectRefused(package, code::inf_without_class);
    package = MakePackage("card");
    package.classGuid = "{4d36e972}";
    ExpectRefused(package, code::inf_class_invalid);
}

TEST_F(RefusedDrivers, NamesThatLeaveTheFolder)
{
    for (const char* name : {"../card.sys", "/etc/hostname", "c:card.sys", "a\\..\\..\\b"}) {
        SCOPED_TRACE(name);
        auto package = MakePackage("card");
        package.files.push_back({"", name});
        ExpectRefused(package, code::invalid_name);
    }
}

TEST_F(RefusedDrivers, ALinkOutOfTheImage)
{
    fs::create_directory(folder_ / "elsewhere");
    fs::create_directory_symlink(folder_ / "elsewhere", In("Windows/System32/DriverStore"));
    EXPECT_CODE(Add("card"), code::access_denied);
    EXPECT_TRUE(fs::is_empty(folder_ / "elsewhere"));
}

TEST_F(RefusedDrivers, AHiveThatCannotBeTrusted)
{
    std::string hive = ReadFile(Hive());
    hive[4] = 2; // its log holds something newer
    WriteFile(Hive(), hive);
    const auto package = MakePackage("card");
    EXPECT_CODE(Store().Add(package, true), code::bad_hive);
    WriteFile(Hive(), "this is no hive");
    EXPECT_CODE(Store().Add(package, true), code::bad_hive);
    EXPECT_EQ(ReadFile(Hive()), "this is no hive");
    EXPECT_FALSE(fs::exists(In("Windows/INF/oem0.inf")));
}

TEST_F(RefusedDrivers, WhatCannotBeRemoved)
{
    EXPECT_CODE(Store().Remove("usb.inf"), code::not_supported);
    EXPECT_CODE(Store().Remove("oem0.inf"), code::file_not_found);
    EXPECT_CODE(Store().Remove("..\\INF\\oem0.inf"), code::invalid_parameter);
    EXPECT_CODE(Store().Remove(""), code::invalid_parameter);
    EXPECT_TRUE(fs::exists(In("Windows/INF/usb.inf")));
}

TEST_F(RefusedDrivers, NoWindows)
{
    EXPECT_CODE(servicing::DriverStore(folder_ / "source"), code::path_not_found);
}

// --- a read-only image ---------------------------------------------------------------------------------

TEST_F(Drivers, AReadOnlyImageIsToldAndLeftAsItIs)
{
    SKIP_UNLESS_MOUNTABLE(folder_);
    const auto other = Add("other");
    const auto before = Snapshot();
    {
        const ReadOnlyFolder image(Root());
        EXPECT_CODE(Add("card"), code::access_denied);
        EXPECT_CODE(Store().Remove(other.published), code::access_denied);
        EXPECT_TRUE(Add("other").alreadyThere);
        EXPECT_EQ(Store().List(false).size(), 1U);
        EXPECT_EQ(Snapshot(), before);
    }
    ExpectWhole(Add("card"), "card");
    Store().Remove(other.published);
    EXPECT_FALSE(fs::exists(other.folder));
}

// The change fails at another of its steps for each of them.
TEST_F(Drivers, AFolderThatIsReadOnlyHasTheOthersTakenBack)
{
    SKIP_UNLESS_MOUNTABLE(folder_);
    const auto other = Add("other");
    const auto before = Snapshot();
    for (const char* folder : {"Windows/System32/DriverStore", "Windows/System32/config",
                               "Windows/System32/DriverStore/FileRepository", "Windows/INF"}) {
        SCOPED_TRACE(folder);
        const ReadOnlyFolder locked(In(folder));
        EXPECT_NE(CodeOf([&] { Add("card"); }), code::ok);
        EXPECT_NE(CodeOf([&] { Store().Remove(other.published); }), code::ok);
        EXPECT_EQ(Snapshot(), before);
    }
    ExpectWhole(other, "other");
    ExpectWhole(Add("card"), "card");
}

// --- a full disk -------------------------------------------------------------------------------------

// With every amount of free space from none to enough, the image is as it was or has the package.
TEST_F(Drivers, ADiskThatFillsUpLosesNothing)
{
    SKIP_UNLESS_MOUNTABLE(folder_);
    const fs::path disk = folder_ / "disk";
    fs::create_directory(disk);
    const SmallDisk small(disk, "size=200k");
    const std::string root = disk / "image";
    const auto package = MakePackage("card");
    WriteFile(folder_ / "source/card/card.sys", Noise(1, 40'000));
    bool added = false;
    for (int ballast = 200; ballast >= 0 && !added; ballast -= 4) {
        fs::remove_all(root);
        fs::remove(disk / "ballast");
        fs::copy(Root(), root, fs::copy_options::recursive);
        Shell("head -c " + std::to_string(ballast * 1024) + " /dev/zero > " +
              (disk / "ballast").string() + " 2>/dev/null || true");
        const std::string before = Shell("cd " + root + " && find . -type f | sort | xargs md5sum");
        const auto result = CodeOf([&] { servicing::DriverStore(root).Add(package, true); });
        added = result == code::ok;
        if (!added) {
            EXPECT_EQ(result, code::disk_full) << std::hex << result;
            EXPECT_EQ(Shell("cd " + root + " && find . -type f | sort | xargs md5sum"), before);
        }
    }
    EXPECT_TRUE(added);
}

} // namespace
} // namespace kestro::test
