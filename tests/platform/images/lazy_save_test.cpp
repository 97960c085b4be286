// lazy_save_test.cpp - images that are shown and not extracted: saving, and what is put back after it.
#include "replay_case.h"

#include <fstream>

namespace kestro::test {
namespace {

class LazySave : public ReplayCase {
  protected:
    void SetUp() override
    {
        ReplayCase::SetUp();
        if (IsSkipped())
            return;
        auto request = Request();
        request.way = servicing::MountWay::Lazy;
        Store().Mount(request);
    }
    fs::path In(const std::string& path) const { return Mounted() + path; }
    void Change(int generation) const
    {
        const std::string mark = std::to_string(generation);
        fs::rename(In("/Windows/System" + std::to_string(30 + generation)),
                   In("/Windows/System" + std::to_string(31 + generation)));
        WriteFile(In("/Windows/System" + std::to_string(31 + generation) + "/hosts"), mark);
        WriteFile(In("/new" + mark + "/file.txt"), mark);
        fs::remove_all(In("/new" + std::to_string(generation - 2)));
    }
    void CommitAndCompare() const
    {
        EXPECT_TRUE(Store().Commit(Mounted(), {}));
        ExpectSaved();
    }
};

TEST_F(LazySave, SeveralTimesInOneMount)
{
    fs::rename(In("/Windows/System32"), In("/Windows/System31"));
    for (int generation = 1; generation <= 4; ++generation) {
        Change(generation);
        CommitAndCompare();
    }
    const std::string saved = ReadFile(Image());
    EXPECT_TRUE(Store().Commit(Mounted(), {}));
    EXPECT_TRUE(ReadFile(Image()) == saved); // nothing new writes nothing
    Change(5);
    const View view = ViewOf(Mounted());
    Commit();
    ExpectNothingLeft();
    Lay();
    EXPECT_EQ(view, ViewOf(Mounted()));
    TakeAway();
}

TEST_F(LazySave, IsPutBackWithWhatWasNotSaved)
{
    fs::rename(In("/Windows/System32"), In("/Windows/System31"));
    for (int generation = 1; generation <= 3; ++generation) {
        SCOPED_TRACE(generation);
        Change(generation);
        CommitAndCompare();
        WriteFile(In("/unsaved" + std::to_string(generation)), "not saved");
        fs::rename(In("/Windows/notes.txt"), In("/Windows/Empty/notes.txt"));
        const View view = ViewOf(Mounted());
        EndServing();
        if (generation > 1) {
            UnmountEverything();
            EXPECT_TRUE(fs::is_empty(Mounted()));
        }
        EXPECT_EQ(Store().Mounts().at(0).state, servicing::MountState::NeedsRemount);
        Store().PutBack(Mounted());
        EXPECT_EQ(Store().Mounts().at(0).state, servicing::MountState::Ok);
        EXPECT_EQ(view, ViewOf(Mounted()));
        CommitAndCompare();
        fs::rename(In("/Windows/Empty/notes.txt"), In("/Windows/notes.txt"));
    }
    Commit();
    ExpectNothingLeft();
}

// The process that serves the image now counts its files in another order than the one before.
TEST_F(LazySave, IsPutBackWithManyChangedFiles)
{
    for (int i = 0; i < 60; ++i)
        WriteFile(In("/many/" + std::to_string(i % 6) + "/" + std::to_string(i)), "new");
    Commit();
    auto request = Request();
    request.way = servicing::MountWay::Lazy;
    Store().Mount(request);
    for (int i = 0; i < 60; i += 2)
        WriteFile(In("/many/" + std::to_string(i % 6) + "/" + std::to_string(i)), "changed");
    EndServing();
    Store().PutBack(Mounted());
    for (int i = 59; i >= 0; --i)
        EXPECT_EQ(ReadFile(In("/many/" + std::to_string(i % 6) + "/" + std::to_string(i))),
                  i % 2 == 0 ? "changed" : "new");
    Commit();
    ExpectNothingLeft();
}

// What Windows cannot hold is refused before anything is written, and stays for the user to rename.
TEST_F(LazySave, OfWhatWindowsCannotHoldIsRefused)
{
    const std::string before = ReadFile(Image());
    WriteFile(In("/Windows/a:b"), "odd");
    EXPECT_CODE(Store().Commit(Mounted(), {}), servicing::code::invalid_name);
    EXPECT_CODE(Commit(), servicing::code::invalid_name);
    EXPECT_TRUE(ReadFile(Image()) == before);
    fs::rename(In("/Windows/a:b"), In("/Windows/a b"));
    Commit();
    EXPECT_EQ(FileInImage("/Windows/a b"), "odd");
    ExpectNothingLeft();
}

} // namespace
} // namespace kestro::test
