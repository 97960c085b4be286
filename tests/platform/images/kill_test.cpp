// kill_test.cpp - a process that saves, drops or mounts is killed at every system call by which it
// changes the disk. After each kill the image file verifies and holds the old state or the new one, and
// the next call finishes the work.
#include "image_case.h"
#include "image_server.h"
#include "killed_process.h"

namespace kestro::test {
namespace {

class Killed : public ImageCase {
  protected:
    // Changes of every kind, the same for the same generation.
    void ChangeTree(int generation) const
    {
        const std::string mark = std::to_string(generation);
        WriteFile(folder_ / "mount/Windows/System32/hosts", "generation " + mark);
        WriteFile(folder_ / "mount/Windows/large.bin",
                  Noise(static_cast<unsigned>(generation), 90'000));
        WriteFile(folder_ / ("mount/Windows/new" + mark) / "file.txt", mark);
        fs::remove_all(folder_ / ("mount/Windows/new" + std::to_string(generation - 1)));
    }
    void ExpectGeneration(int generation) const
    {
        const std::string mark = std::to_string(generation);
        EXPECT_EQ(FileInImage("/Windows/System32/hosts"), "generation " + mark);
        EXPECT_TRUE(FileInImage("/Windows/large.bin") ==
                    Noise(static_cast<unsigned>(generation), 90'000));
        EXPECT_EQ(FileInImage("/Windows/new" + mark + "/file.txt"), mark);
    }
    void ExpectOldOr(const std::string& before, int generation) const
    {
        ExpectValidImage();
        // An append that was killed leaves the old file, with something behind it that means nothing.
        if (!ReadFile(Image()).starts_with(before))
            ExpectGeneration(generation);
    }
    // Neither more nor less than a call that finds no mount any more may answer.
    void FinishUnmount(bool commit) const
    {
        const auto result = CodeOf([&] { commit ? Commit() : Discard(); });
        EXPECT_TRUE(result == servicing::code::ok ||
                    result == servicing::code::directory_not_mounted)
            << std::hex << result;
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
    }
    void SaveUnderKills() const;
    // The file of that name in the mount's record; empty when there is none.
    fs::path Left(const std::string& name) const
    {
        for (const auto& entry : fs::recursive_directory_iterator(folder_ / "records"))
            if (entry.path().filename() == name)
                return entry.path();
        return {};
    }
};

void Killed::SaveUnderKills() const
{
    int kills = 0, generation = 1;
    Mount();
    ChangeTree(generation);
    Commit();
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        Mount();
        const std::string before = ReadFile(Image());
        ChangeTree(++generation);
        killed = RunAndKill([&] { Commit(); }, kills + 1);
        ExpectOldOr(before, generation);
        FinishUnmount(true);
        ExpectValidImage();
        ExpectGeneration(generation);
        ASSERT_FALSE(HasFailure());
    }
    RecordProperty("kills", kills - 1);
    EXPECT_GT(kills, 20);
}

TEST_F(Killed, WhileItSaves)
{
    SaveUnderKills();
}

// libwim writes such a file into another one of its own.
TEST_F(Killed, WhileItSavesAPipableImage)
{
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
          " Test --pipable");
    SaveUnderKills();
}

// Nothing is left of a save that did not happen.
TEST_F(Killed, WhileItSavesAndThenDropped)
{
    int kills = 0, generation = 0, kept = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        const std::string before = ReadFile(Image());
        Mount();
        ChangeTree(++generation);
        killed = RunAndKill([&] { Store().Commit(Mounted(), {}); }, kills + 1);
        Discard();
        ExpectNothingLeft();
        if (ReadFile(Image()) == before)
            ++kept;
        else
            ExpectGeneration(generation);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kept, 15);
    EXPECT_LT(kept, kills);
}

// Another image of the same file is mounted before anybody has cleared up.
TEST_F(Killed, WhileItSavesBesideAnotherMount)
{
    Shell("wimlib-imagex append " + (folder_ / "tree").string() + " " + Image().string() +
          " Second");
    auto second = Request();
    second.index = 2;
    second.directory = folder_ / "second";
    fs::create_directory(second.directory);
    int kills = 0, generation = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        Mount();
        ChangeTree(++generation);
        killed = RunAndKill([&] { Store().Commit(Mounted(), {}); }, kills + 1);
        Store().Mount(second);
        Discard();
        WriteFile(folder_ / "second/second.txt", std::to_string(generation));
        Store().CommitAndUnmount(second.directory, {});
        ExpectValidImage();
        EXPECT_EQ(FileInImage("/second.txt", 2), std::to_string(generation));
        ExpectNothingLeft();
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 15);
}

TEST_F(Killed, WhileItSavesAndStaysMounted)
{
    int kills = 0, generation = 0;
    Mount();
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        const std::string before = ReadFile(Image());
        ChangeTree(++generation);
        killed = RunAndKill([&] { Store().Commit(Mounted(), {}); }, kills + 1);
        ExpectOldOr(before, generation);
        EXPECT_TRUE(Store().Commit(Mounted(), {}));
        ExpectGeneration(generation);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 15);
    Discard();
}

// What a killed save left is brought into order by a call that is killed at every change, too.
TEST_F(Killed, WhileItRecoversFromAKilledSave)
{
    const auto save = [&] { Store().Commit(Mounted(), {}); };
    int killedSaves = 0, recoveries = 0, generation = 0;
    Mount();
    for (bool killed = true; killed; ++killedSaves) {
        const std::string before = ReadFile(Image());
        ChangeTree(++generation);
        killed = RunAndKill(save, killedSaves + 1);
        if (Left("next.json").empty())
            continue; // nothing to take back or to finish
        for (int change = 1; RunAndKill([&] { Store().IsMounted(Mounted()); }, change);
             ++change, ++recoveries) {
            SCOPED_TRACE("killed before change " + std::to_string(killedSaves + 1) + ", then " +
                         std::to_string(change));
            ExpectOldOr(before, generation);
            ASSERT_FALSE(HasFailure());
        }
        EXPECT_TRUE(Left("next.json").empty() && Left("stand-in.wim").empty());
    }
    EXPECT_GT(recoveries, 10);
    save();
    ExpectValidImage();
    ExpectGeneration(generation);
    Discard();
    ExpectNothingLeft();
}

// It might be in the middle of what would be taken back.
TEST_F(Killed, WhileItSavesAndAnotherProcessSavesIntoTheFile)
{
    const auto save = [&] { Store().Commit(Mounted(), {}); };
    Mount();
    int change = 1;
    for (; Left("next.json").empty(); ++change) {
        ChangeTree(change);
        ASSERT_TRUE(RunAndKill(save, change));
    }
    {
        const auto other = servicing::LockImage(Image());
        EXPECT_CODE(save(), servicing::code::busy);
        EXPECT_FALSE(Left("next.json").empty());
    }
    save();
    ExpectGeneration(change - 1);
    Discard();
    ExpectNothingLeft();
}

TEST_F(Killed, WhileItDrops)
{
    const std::string before = ReadFile(Image());
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        Mount();
        ChangeTree(1);
        killed = RunAndKill([&] { Discard(); }, kills + 1);
        FinishUnmount(false);
        EXPECT_EQ(ReadFile(Image()), before);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 10);
}

TEST_F(Killed, WhileItMounts)
{
    const std::string before = ReadFile(Image());
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        killed = RunAndKill([&] { Mount(); }, kills + 1);
        if (killed && Store().IsMounted(Mounted())) {
            // Unfinished, it can be dropped and not saved; finished, both.
            const auto result = CodeOf([&] { Commit(); });
            EXPECT_TRUE(result == servicing::code::cannot_commit_partial ||
                        result == servicing::code::ok)
                << std::hex << result;
        }
        FinishUnmount(false);
        EXPECT_EQ(ReadFile(Image()), before);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 10);
}

// After a restart: over an image that was saved, with what was not.
TEST_F(Killed, WhileItPutsBack)
{
    if (!IsLazy())
        GTEST_SKIP() << "what is extracted needs not be put back";
    const fs::path windows = folder_ / "mount/Windows", empty = windows / "Empty";
    Mount();
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        ChangeTree(kills + 1);
        EXPECT_TRUE(Store().Commit(Mounted(), {}));
        const bool isAway = kills % 2 != 0;
        fs::rename((isAway ? empty : windows) / "notes.txt",
                   (isAway ? windows : empty) / "notes.txt");
        WriteFile(windows / "unsaved.txt", std::to_string(kills));
        EndServing();
        killed = RunAndKill([&] { Store().PutBack(Mounted()); }, kills + 1);
        Store().PutBack(Mounted());
        EXPECT_EQ(ReadFile(windows / "unsaved.txt"), std::to_string(kills));
        EXPECT_EQ(ReadFile(windows / "System32/hosts"), "generation " + std::to_string(kills + 1));
        EXPECT_EQ(ReadFile((isAway ? windows : empty) / "notes.txt"), std::string(5000, 'n'));
        EXPECT_FALSE(fs::exists((isAway ? empty : windows) / "notes.txt"));
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 20);
    Commit();
    ExpectGeneration(kills);
    EXPECT_EQ(FileInImage("/Windows/unsaved.txt"), std::to_string(kills - 1));
    ExpectNothingLeft();
}

} // namespace
} // namespace kestro::test
