// driver_list_test.cpp - finding the packages of an offline tree, whoever put them there.
#include "driver_case.h"

namespace kestro::test {
namespace {

using Listing = DriverCase;

std::vector<std::string> Names(const std::vector<servicing::PublishedInf>& list)
{
    std::vector<std::string> names;
    for (const auto& inf : list)
        names.push_back(inf.name);
    return names;
}

TEST_F(Listing, NumbersCountByValue)
{
    for (int i = 0; i < 11; ++i)
        Add("card" + std::to_string(i));
    std::vector<std::string> expected;
    for (int i = 0; i < 11; ++i)
        expected.push_back("oem" + std::to_string(i) + ".inf");
    EXPECT_EQ(Names(Store().List(false)), expected);
}

TEST_F(Listing, InBoxInfsAreListedOnlyOnRequest)
{
    Add("card");
    EXPECT_EQ(Names(Store().List(false)), (std::vector<std::string>{"oem0.inf"}));
    const auto all = Store().List(true);
    EXPECT_EQ(Names(all), (std::vector<std::string>{"oem0.inf", "usb.inf"}));
    EXPECT_FALSE(all[0].inBox);
    EXPECT_TRUE(all[1].inBox);
}

// Windows' own tool, or another, staged this package.
TEST_F(Listing, APackageOfSomebodyElse)
{
    const fs::path folder = In("Windows/System32/DriverStore/FileRepository/x.inf_amd64_0123");
    WriteFile(folder / "X.INF", "somebody's INF");
    WriteFile(In("Windows/INF/OEM42.inf"), "somebody's INF");
    const auto list = Store().List(false);
    ASSERT_EQ(Names(list), (std::vector<std::string>{"OEM42.inf"}));
    EXPECT_EQ(list[0].stored, folder / "X.INF");
    Remove("oem42.inf");
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_FALSE(fs::exists(In("Windows/INF/OEM42.inf")));
}

// The published INF was edited, so only the registry leads to the repository.
TEST_F(Listing, TheRegistryLeadsToTheRepository)
{
    const auto added = Add("card");
    WriteFile(In("Windows/INF/oem0.inf"), "edited");
    const auto list = Store().List(false);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].stored, added.folder / "card.inf");
}

TEST_F(Listing, ADamagedHiveHidesNothing)
{
    Add("card");
    WriteFile(Hive(), "damaged");
    EXPECT_EQ(Names(Store().List(false)), (std::vector<std::string>{"oem0.inf"}));
}

TEST_F(Listing, AnEmptyImage)
{
    fs::remove_all(In("Windows/INF"));
    EXPECT_TRUE(Store().List(true).empty());
    EXPECT_FALSE(Store().Find("oem0.inf"));
}

TEST_F(Listing, FindIgnoresCase)
{
    Add("card");
    ASSERT_TRUE(Store().Find("OEM0.INF"));
    EXPECT_EQ(Store().Find("OEM0.INF")->name, "oem0.inf");
    EXPECT_FALSE(Store().Find("oem00.inf"));
}

} // namespace
} // namespace kestro::test
