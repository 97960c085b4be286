// driver_store_test.cpp - adding packages to an offline tree and removing them, natively.
#include "driver_case.h"
#include "mount_point.h"
#include "sample_catalog.h"

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

TEST_F(Drivers, TheSamePackageAgainIsNoDuplicate)
{
    const auto first = Add("card");
    const auto before = Snapshot();
    const auto second = Add("card");
    EXPECT_TRUE(second.alreadyThere);
    EXPECT_EQ(second.published, first.published);
    EXPECT_TRUE(Snapshot() == before);
}

TEST_F(Drivers, OneChangedByteIsAnotherPackage)
{
    const auto first = Add("card");
    auto package = MakePackage("card");
    WriteFile(folder_ / "source/card/x64/Helper.dll", "the helper, newer");
    const auto second = Add(package);
    EXPECT_FALSE(second.alreadyThere);
    EXPECT_EQ(second.published, "oem1.inf");
    EXPECT_NE(second.folder, first.folder);
}

TEST_F(Drivers, TheLowestFreeNumberIsTaken)
{
    Add("a"), Add("b"), Add("c");
    Remove("oem1.inf");
    EXPECT_EQ(Add("d").published, "oem1.inf");
    EXPECT_EQ(Add("e").published, "oem3.inf");
    EXPECT_EQ(Database("SYSTEM")["  oeminfmap"], "BIN f0");
    Remove("oem1.inf");
    EXPECT_EQ(Database("SYSTEM")["  oeminfmap"], "BIN b0");
    EXPECT_EQ(Add("d").published, "oem1.inf");
    // A number of which only the catalog is left is not free.
    WriteFile(In("Windows/System32/CatRoot/{F750E6C3-38EE-11D1-85E5-00C04FC295EE}/oem4.cat"), "");
    EXPECT_EQ(Add("f").published, "oem5.inf");
    EXPECT_EQ(Database("SYSTEM")["  oeminfmap"], "BIN f4");
}

TEST_F(Drivers, AnImageWithoutAHiveNeedsNone)
{
    for (const char* hive : {"SYSTEM", "DRIVERS", "SOFTWARE"})
        fs::remove(Hive(hive));
    const auto added = Add("card");
    EXPECT_EQ(ReadFile(In("Windows/INF/oem0.inf")), "the INF of card");
    EXPECT_EQ(ReadFile(added.folder / "card.sys"), "the driver of card");
    EXPECT_TRUE(fs::is_empty(In("Windows/System32/config")));
    Remove("oem0.inf");
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
    Add("stays");
    AddBoot("staystoo");
    const auto before = Snapshot();
    const auto added = Add("goes");
    const auto boot = AddBoot("goestoo");
    EXPECT_FALSE(Snapshot() == before);
    Remove(added.published);
    Remove(boot.published);
    EXPECT_TRUE(Snapshot() == before);
    EXPECT_CODE(Remove(added.published), code::file_not_found);
}

TEST_F(Drivers, AFolderThatTwoPackagesShareStaysWithTheOther)
{
    const auto added = Add("card");
    fs::copy(In("Windows/INF/oem0.inf"), In("Windows/INF/oem7.inf"));
    Remove("oem0.inf");
    EXPECT_TRUE(fs::exists(added.folder));
    Remove("OEM7.INF");
    EXPECT_FALSE(fs::exists(added.folder));
}

// --- refusals, which change nothing ------------------------------------------------------------------

class RefusedDrivers : public DriverCase {
  protected:
    void ExpectRefused(const servicing::DriverPackage& package, servicing::Code expected,
                       bool force = true) const
    {
        const auto before = Snapshot();
        EXPECT_CODE(Add(package, force), expected);
        EXPECT_TRUE(Snapshot() == before);
    }
};

TEST_F(RefusedDrivers, Unsigned)
{
    auto package = MakePackage("card");
    ExpectRefused(package, code::catalog_missing, false);
    package.catalog = "card.cat";
    ExpectRefused(package, code::catalog_missing, false);
    WriteFile(folder_ / "source/card/card.cat", "no catalog");
    ExpectRefused(package, code::package_unsigned, false);
}

TEST_F(RefusedDrivers, SignedForAnotherInf)
{
    auto package = MakePackage("card");
    package.catalog = "card.cat";
    samples::SampleCatalog catalog;
    catalog.files = {samples::Listing("card.inf", "the INF of another card")};
    WriteFile(folder_ / "source/card/card.cat", catalog.SignedBy(samples::MakerSigner()));
    ExpectRefused(package, code::file_not_in_catalog, false);
    EXPECT_FALSE(Add(package).alreadyThere);
}

TEST_F(RefusedDrivers, SignedWithoutOneOfItsFiles)
{
    auto package = MakePackage("card");
    package.catalog = "card.cat";
    samples::SampleCatalog catalog;
    catalog.files = {samples::Listing("card.inf", "the INF of card"),
                     samples::Listing("card.sys", "the driver of card")};
    WriteFile(folder_ / "source/card/card.cat", catalog.SignedBy(samples::MakerSigner()));
    ExpectRefused(package, code::file_not_in_catalog, false);
    catalog.files.push_back(samples::Listing("Helper.dll", "the helper of card"));
    WriteFile(folder_ / "source/card/card.cat", catalog.SignedBy(samples::MakerSigner()));
    EXPECT_FALSE(Store().Add(package, false).alreadyThere);
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
    EXPECT_CODE(Add("card"), code::bad_hive);
    WriteFile(Hive(), "this is no hive");
    EXPECT_CODE(Add("card"), code::bad_hive);
    EXPECT_EQ(ReadFile(Hive()), "this is no hive");
    EXPECT_FALSE(fs::exists(In("Windows/INF/oem0.inf")));
}

TEST_F(RefusedDrivers, WhatCannotBeRemoved)
{
    EXPECT_CODE(Remove("usb.inf"), code::not_supported);
    EXPECT_CODE(Remove("oem0.inf"), code::file_not_found);
    EXPECT_CODE(Remove("..\\INF\\oem0.inf"), code::invalid_parameter);
    EXPECT_CODE(Remove(""), code::invalid_parameter);
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
        EXPECT_CODE(Remove(other.published), code::access_denied);
        EXPECT_TRUE(Add("other").alreadyThere);
        EXPECT_EQ(Store().List(false).size(), 1U);
        EXPECT_TRUE(Snapshot() == before);
    }
    ExpectWhole(Add("card"), "card");
    Remove(other.published);
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
        EXPECT_NE(CodeOf([&] { Remove(other.published); }), code::ok);
        EXPECT_TRUE(Snapshot() == before);
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
    const SmallDisk small(disk, "size=400k");
    const std::string root = disk / "image";
    const auto package = MakePackage("card");
    WriteFile(folder_ / "source/card/card.sys", Noise(1, 40'000));
    bool added = false;
    for (int ballast = 400; ballast >= 0 && !added; ballast -= 6) {
        fs::remove_all(root);
        fs::remove(disk / "ballast");
        fs::copy(Root(), root, fs::copy_options::recursive);
        Shell("head -c " + std::to_string(ballast * 1024) + " /dev/zero > " +
              (disk / "ballast").string() + " 2>/dev/null || true");
        const std::string before = Shell("cd " + root + " && find . -type f | sort | xargs md5sum");
        const auto result = CodeOf([&] {
            servicing::DriverStore store(root);
            store.Add(package, true);
            store.Save();
        });
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
