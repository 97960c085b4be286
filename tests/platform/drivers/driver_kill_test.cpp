// driver_kill_test.cpp - a process that adds or removes a package is killed at every system call by
// which it changes the disk. The package is then whole or gone, and the next call works.
#include "driver_case.h"
#include "killed_process.h"

namespace kestro::test {
namespace {

// Each run has a package that is only staged, and one that the boot needs: with it, all three hives
// change, and files outside of the driver store.
class KilledDrivers : public DriverCase, public testing::WithParamInterface<bool> {
  protected:
    servicing::AddResult AddCard() const { return GetParam() ? AddBoot("card") : Add("card"); }
    void ExpectCard(const servicing::AddResult& added) const
    {
        if (GetParam())
            ExpectWholeBoot(added, "card");
        else
            ExpectWhole(added, "card");
    }
    // It leaves what was begun there or away, whatever it is about.
    void NextCall() const { EXPECT_CODE(Remove("oem7.inf"), servicing::code::file_not_found); }
    bool IsPublished(const std::string& name) const
    {
        return fs::exists(In("Windows/INF/" + name));
    }
};

TEST_P(KilledDrivers, WhileTheyAreAdded)
{
    AddBoot("other");
    Remove(Add("third").published);
    const auto without = Snapshot();
    ExpectCard(AddCard());
    const auto with = Snapshot();
    Remove("oem1.inf");
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        killed = RunAndKill([&] { AddCard(); }, kills + 1);
        NextCall();
        const auto now = Snapshot();
        const bool published = IsPublished("oem1.inf");
        EXPECT_TRUE(published || killed);
        EXPECT_TRUE(now == (published ? with : without));
        const auto again = AddCard();
        EXPECT_EQ(again.alreadyThere, published);
        EXPECT_EQ(again.published, "oem1.inf");
        EXPECT_TRUE(Snapshot() == with);
        Remove("oem1.inf");
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 15);
}

TEST_P(KilledDrivers, WhileTheyAreRemoved)
{
    AddBoot("other");
    Remove(Add("third").published);
    const auto without = Snapshot();
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        AddCard();
        const auto with = Snapshot();
        killed = RunAndKill([&] { Remove("oem1.inf"); }, kills + 1);
        NextCall();
        const bool published = IsPublished("oem1.inf");
        EXPECT_TRUE(!published || killed);
        EXPECT_TRUE(Snapshot() == (published ? with : without));
        if (published)
            Remove("oem1.inf");
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 10);
}

INSTANTIATE_TEST_SUITE_P(BothKinds, KilledDrivers, testing::Bool());

// Several packages of one session are there together or not at all.
TEST_F(DriverCase, ASessionThatIsKilledSavesAllOfItsPackagesOrNone)
{
    AddBoot("other");
    Remove(Add("third").published);
    const auto before = Snapshot();
    const auto work = [&] {
        servicing::DriverStore store(Root());
        store.Add(MakePackage("one"), true);
        store.Add(MakeBootPackage("two"), true);
        store.Save();
    };
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        killed = RunAndKill(work, kills + 1);
        EXPECT_CODE(Remove("oem7.inf"), servicing::code::file_not_found);
        EXPECT_EQ(fs::exists(In("Windows/INF/oem1.inf")), fs::exists(In("Windows/INF/oem2.inf")));
        if (fs::exists(In("Windows/INF/oem1.inf"))) {
            Remove("oem1.inf");
            Remove("oem2.inf");
        }
        EXPECT_TRUE(Snapshot() == before);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 20);
}

} // namespace
} // namespace kestro::test
