// replay_test.cpp - every kind of change to a lazily mounted image, saved several times in one mount:
// the image then holds what the mount shows, and a mount put back over it shows the same.
#include "mount_point.h"
#include "replay_case.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>

namespace kestro::test {
namespace {

namespace code = servicing::code;

class Replay : public ReplayCase {
  protected:
    void SetUp() override
    {
        ReplayCase::SetUp();
        if (!IsSkipped())
            Lay();
    }
    fs::path In(const std::string& path) const { return Mounted() + path; }
    void Append(const std::string& path, const std::string& text) const
    {
        std::ofstream(In(path), std::ios::binary | std::ios::app) << text;
    }
    void Swap(const std::string& left, const std::string& right) const
    {
        ASSERT_EQ(
            renameat2(AT_FDCWD, In(left).c_str(), AT_FDCWD, In(right).c_str(), RENAME_EXCHANGE), 0);
    }
    void SaveAndCompare()
    {
        Save();
        ExpectSaved();
    }
    // Each step is saved, and the mount put back after the last one; then all of them at once, unsaved.
    void RunSteps(const std::vector<std::function<void()>>& steps)
    {
        fs::copy_file(Image(), folder_ / "original.wim");
        for (std::size_t i = 0; i < steps.size(); ++i) {
            SCOPED_TRACE("step " + std::to_string(i + 1));
            steps[i]();
            SaveAndCompare();
        }
        PutBack();
        TakeAway();
        fs::copy_file(folder_ / "original.wim", Image(), fs::copy_options::overwrite_existing);
        Lay();
        for (const auto& step : steps)
            step();
        PutBack();
        SaveAndCompare();
    }
};

TEST_F(Replay, FilesThatAreMadeGrowShrinkMoveAndGo)
{
    const std::string hosts = "/Windows/System32/hosts";
    RunSteps({[&] {
                  WriteFile(In("/Windows/new/deep/new.txt"), "new");
                  WriteFile(In("/Windows/empty new.txt"), "");
                  Append(hosts, "more");
                  fs::resize_file(In("/Windows/notes.txt"), 10);
                  fs::remove(In("/Windows/empty.txt"));
              },
              [&] {
                  Append(hosts, "and more");
                  Append("/Windows/new/deep/new.txt", "er");
                  fs::resize_file(In("/Windows/notes.txt"), 100'000);
                  fs::rename(In("/Windows/System32/kernel.bin"), In("/Windows/kernel.bin"));
                  WriteFile(In("/Windows/empty.txt"), "no longer");
              },
              [&] {
                  fs::rename(In("/Windows/kernel.bin"), In("/Windows/System32/kernel.bin"));
                  fs::rename(In("/Windows/notes.txt"), In(hosts));
                  fs::remove_all(In("/Windows/new"));
              }});
}

TEST_F(Replay, NamesThatAreSwapped)
{
    const std::string system = "/Windows/System32", empty = "/Windows/Empty";
    const auto swapAll = [&] {
        Swap(system, empty);
        Swap("/Windows/notes.txt", "/Windows/empty.txt");
    };
    RunSteps({swapAll, [&] { Append(empty + "/hosts", "below a swapped name"); }, swapAll,
              [&] { Swap("/Windows/notes.txt", empty); }});
}

TEST_F(Replay, FilesInThePlaceOfDirectoriesAndBack)
{
    const fs::path system = In("/Windows/System32"), notes = In("/Windows/notes.txt");
    RunSteps({[&] {
                  fs::remove_all(system);
                  WriteFile(system, "a file now");
                  fs::remove(notes);
                  WriteFile(notes / "a/b.txt", "a directory now");
              },
              [&] {
                  fs::remove(system);
                  WriteFile(system / "hosts", "made anew");
                  fs::remove_all(notes);
                  fs::create_symlink("empty.txt", notes);
              },
              [&] {
                  fs::remove(notes);
                  WriteFile(notes, "a file again");
              }});
}

TEST_F(Replay, TreesThatAreDeletedAndMadeAnew)
{
    const fs::path windows = In("/Windows"), system = In("/Windows/System32");
    RunSteps({[&] {
                  fs::remove_all(system);
                  WriteFile(system / "kernel.bin/inside", "new");
              },
              [&] {
                  fs::remove_all(windows);
                  fs::create_directory(windows);
                  WriteFile(system / "hosts", "127.0.0.2");
              },
              [&] { fs::remove_all(windows); },
              [&] { WriteFile(In("/Windows/System32/hosts"), "once more"); }});
}

TEST_F(Replay, DirectoriesThatMoveIntoEachOther)
{
    const auto move = [&](const std::string& from, const std::string& to) {
        fs::rename(In(from), In(to));
    };
    RunSteps({[&] {
                  move("/Windows/System32", "/Windows/Empty/S");
                  move("/Windows/Empty", "/E");
                  fs::create_directory(In("/Windows/System32"));
                  move("/Windows", "/E/S/W");
              },
              [&] {
                  Append("/E/S/hosts", "in a directory that moved twice");
                  fs::remove(In("/E/S/W/notes.txt"));
                  fs::create_directory(In("/Windows"));
                  move("/E/S", "/Windows/S");
              },
              [&] {
                  move("/Windows/S/W", "/W");
                  fs::remove_all(In("/E"));
                  move("/Windows/S", "/E");
                  WriteFile(In("/W/System32/new.txt"), "new");
              },
              [&] {
                  move("/W/System32", "/S");
                  fs::remove_all(In("/W"));
                  move("/E", "/W");
              }});
}

TEST_F(Replay, LinksOfBothKinds)
{
    const std::string hosts = "/Windows/System32/hosts";
    const auto link = [&](const std::string& to) { fs::create_hard_link(In(hosts), In(to)); };
    const auto expectLinks = [&](nlink_t expected) {
        struct stat status = {};
        const std::string saved = NewDirectory();
        Shell("wimlib-imagex mount " + Image().string() + " 1 " + saved);
        EXPECT_EQ(lstat((saved + hosts).c_str(), &status), 0);
        Shell("umount " + saved);
        EXPECT_EQ(status.st_nlink, expected);
    };
    link("/a");
    link("/b");
    fs::create_symlink("Windows/System32", In("/system"));
    fs::create_symlink("/nowhere at all", In("/nowhere"));
    SaveAndCompare();
    expectLinks(3);
    Append("/a", "through another name");
    SaveAndCompare();
    expectLinks(3);
    fs::remove(In("/b"));
    link("/c");
    SaveAndCompare();
    expectLinks(3);
    fs::rename(In("/system"), In("/a"));
    SaveAndCompare();
    expectLinks(2);
    Append("/c", "not saved");
    PutBack();
    SaveAndCompare();
    expectLinks(2);
}

// --- what a save is not to do ------------------------------------------------------------------------

TEST_F(Replay, NothingChangedNeedsNoSave)
{
    const auto plan = [&] { return Plan(servicing::ReadUpperState(Upper())); };
    EXPECT_TRUE(plan().Empty());
    // Brought into the upper directory, and no more.
    Append("/Windows/System32/kernel.bin", "");
    fs::permissions(In("/Windows/System32/kernel.bin"), fs::perms::owner_read);
    fs::permissions(In("/Windows/notes.txt"), fs::perms::owner_all);
    EXPECT_FALSE(servicing::ReadUpperState(Upper()).empty());
    EXPECT_TRUE(plan().Empty());

    WriteFile(In("/Windows/new.txt"), "new");
    fs::rename(In("/Windows/System32"), In("/Windows/System"));
    EXPECT_FALSE(plan().Empty());
    Save();
    EXPECT_TRUE(plan().Empty());
    fs::permissions(In("/Windows/new.txt"), fs::perms::owner_all);
    EXPECT_TRUE(plan().Empty());
    // The same size and time: only the content can tell.
    struct stat before = {};
    stat(In("/Windows/new.txt").c_str(), &before);
    WriteFile(In("/Windows/new.txt"), "old");
    const timespec times[2] = {before.st_atim, before.st_mtim};
    utimensat(AT_FDCWD, In("/Windows/new.txt").c_str(), times, 0);
    EXPECT_FALSE(plan().Empty());
    SaveAndCompare();
}

TEST_F(Replay, WhatWindowsCannotHoldIsRefused)
{
    // An image below a directory refuses some of them; a new directory has none below it.
    const fs::path folder = In("/new");
    fs::create_directory(folder);
    const auto state = [&] { return servicing::ReadUpperState(Upper()); };
    for (const char* const name :
         {"a:b", "back\\slash", "star*", "what?", "quote\"", "<", ">", "pipe|", "tab\t", "dot.",
          "space ", "NUL", "aux.txt", "com1", "Lpt9.log", "not \xFF UTF-8", "\xC0\x80"}) {
        SCOPED_TRACE(name);
        WriteFile(folder / name, "odd");
        EXPECT_CODE(servicing::RequireWindowsEntries({}, state()), code::invalid_name);
        // What the image had before is none of a save's business.
        EXPECT_CODE(servicing::RequireWindowsEntries(state(), state()), code::ok);
        fs::remove(folder / name);
    }
    for (const char* const name : {"plain", ".hidden", "com0", "com10", "nulls", "Gr\u00fc\u00dfe"})
        WriteFile(folder / name, "good");
    EXPECT_CODE(servicing::RequireWindowsEntries({}, state()), code::ok);
    SaveAndCompare();
    ASSERT_EQ(mkfifo(In("/Windows/pipe").c_str(), 0600), 0);
    EXPECT_CODE(servicing::RequireWindowsEntries({}, state()), code::not_supported);
    PutBack(); // of no use to an image, but the user's
    EXPECT_TRUE(fs::is_fifo(In("/Windows/pipe")));
}

TEST_F(Replay, ACancelledSaveLeavesTheImage)
{
    const std::string before = ReadFile(Image());
    WriteFile(In("/large.bin"), Noise(3, 5'000'000));
    unsigned highest = 0;
    EXPECT_CODE(Save([&](unsigned current, unsigned) {
                    highest = current;
                    return current < 50;
                }),
                code::cancelled);
    EXPECT_LT(highest, 100U);
    EXPECT_EQ(ReadFile(Image()), before);
    Save([&](unsigned current, unsigned) {
        highest = current;
        return true;
    });
    EXPECT_EQ(highest, 100U);
    ExpectSaved();
}

TEST_F(Replay, HolesStayHoles)
{
    WriteFile(In("/sparse.bin"), "begin");
    fs::resize_file(In("/sparse.bin"), 20'000'000);
    Append("/sparse.bin", "end");
    fs::resize_file(In("/sparse.bin"), 30'000'000);
    PutBack();
    struct stat status = {};
    ASSERT_EQ(lstat(In("/sparse.bin").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 30'000'000);
    EXPECT_LT(status.st_blocks, 1000);
}

// Of what others do while a save runs, it takes this or that; the next one takes the rest.
TEST_F(Replay, ChangesDuringASaveAreInTheNext)
{
    WriteFile(In("/Windows/first.bin"), Noise(1, 300'000));
    WriteFile(In("/Windows/second.bin"), Noise(2, 300'000));
    WriteFile(In("/Windows/third.bin"), Noise(3, 300'000));
    bool changed = false;
    Save([&](unsigned, unsigned) {
        if (!std::exchange(changed, true)) {
            fs::rename(In("/Windows/third.bin"), In("/Windows/fourth.bin"));
            fs::remove(In("/Windows/second.bin"));
            Append("/Windows/first.bin", "late");
            fs::rename(In("/Windows/System32"), In("/System32"));
        }
        return true;
    });
    SaveAndCompare();
}

TEST_F(Replay, ADamagedStateIsRefused)
{
    WriteFile(In("/Windows/new.txt"), "new");
    fs::rename(In("/Windows/System32"), In("/S"));
    const std::string text = servicing::ToText(servicing::ReadUpperState(Upper()));
    for (const std::string& damaged :
         {std::string(), text.substr(1), text.substr(0, text.size() - 1), text + "d",
          text + std::string("x\0\0", 3)})
        EXPECT_CODE(servicing::UpperStateFromText(damaged), code::not_a_valid_mount);
    // A place outside the image is none.
    auto state = servicing::UpperStateFromText(text);
    state.at("/S").redirect = "/../../outside";
    EXPECT_CODE(Plan(state), code::not_a_valid_mount);
}

} // namespace
} // namespace kestro::test
