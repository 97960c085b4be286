// driver_kill_test.cpp - a process that adds or removes a package is killed at every system call by
// which it changes the disk. The package is then whole or gone, and the next call works.
#include "driver_case.h"
#include "killed_process.h"

namespace kestro::test {
namespace {

class KilledDrivers : public DriverCase {
  protected:
    bool IsPublished(const std::string& name) const
    {
        return fs::exists(In("Windows/INF/" + name));
    }
    // The registry is one file that is replaced in one step.
    void ExpectReadableHive() const { Shell("hivexml " + Hive().string() + " > /dev/null"); }
};

TEST_F(KilledDrivers, WhileTheyAreAdded)
{
    const auto other = Add("other");
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        killed = RunAndKill([&] { Add("card"); }, kills + 1);
        ExpectReadableHive();
        ExpectWhole(other, "other");
        const bool published = IsPublished("oem1.inf");
        EXPECT_TRUE(published || killed);
        const auto again = Add("card");
        EXPECT_EQ(again.alreadyThere, published);
        EXPECT_EQ(again.published, "oem1.inf");
        ExpectWhole(again, "card");
        ExpectWhole(other, "other");
        Store().Remove("oem1.inf");
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 15);
}

TEST_F(KilledDrivers, WhileTheyAreRemoved)
{
    const auto other = Add("other");
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        const auto added = Add("card");
        killed = RunAndKill([&] { Store().Remove("oem1.inf"); }, kills + 1);
        ExpectReadableHive();
        ExpectWhole(other, "other");
        if (IsPublished("oem1.inf")) {
            ExpectWhole(added, "card");
            Store().Remove("oem1.inf");
        } else {
            // What is left of it goes with the next change.
            EXPECT_EQ(Add("third").published, "oem1.inf");
            Store().Remove("oem1.inf");
        }
        EXPECT_FALSE(fs::exists(added.folder));
        EXPECT_EQ(Keys("DriverInfFiles"), "oem0.inf\n");
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 10);
}

} // namespace
} // namespace kestro::test
