// append_test.cpp - saves that append to the image file: what they write, what they leave alone, and which
// image files they do not append to.
#include "image_case.h"

#include <sys/stat.h>

#include <fstream>

namespace kestro::test {
namespace {

namespace code = servicing::code;
using servicing::WimHeader;

class Append : public ImageCase {
  protected:
    void Capture(const std::string& options) const
    {
        Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
              " Test " + options);
    }
    WimHeader Header() const { return servicing::ImageIdentityOf(Image().string()).header; }
    unsigned long long Inode() const { return servicing::IdentityOf(Image()).inode; }
    void ChangeAndCommit(const std::string& content, bool integrity = false) const
    {
        Mount();
        WriteFile(folder_ / "mount/Windows/System32/hosts", content);
        WriteFile(folder_ / "mount/new/file.txt", content + " too");
        fs::remove(folder_ / "mount/Windows/notes.txt");
        Store().CommitAndUnmount(Mounted(), {.integrity = integrity});
        ExpectChange(content);
    }
    void ExpectChange(const std::string& content) const
    {
        ExpectValidImage();
        EXPECT_EQ(FileInImage("/Windows/System32/hosts"), content);
        EXPECT_EQ(FileInImage("/new/file.txt"), content + " too");
        EXPECT_EQ(FileInImage("/Windows/System32/kernel.bin"), Noise(1, 100'000));
        ExpectNothingLeft();
    }
    // All that was in the file stays where it was, and what is new comes right behind it.
    void ExpectAppended(const std::string& before, unsigned long long inode) const
    {
        const auto end = WimHeader(before.substr(0, WimHeader::kSize)).End();
        const std::string now = ReadFile(Image());
        EXPECT_EQ(Inode(), inode);
        EXPECT_TRUE(now.substr(WimHeader::kSize, end - WimHeader::kSize) ==
                    before.substr(WimHeader::kSize, end - WimHeader::kSize));
        EXPECT_GE(Header().BlobTable().offset, end);
        EXPECT_EQ(now.size(), Header().End());
    }
    bool LogSays(const std::string& text) const
    {
        return ReadFile(folder_ / "log").find(text) != std::string::npos;
    }
};

TEST_F(Append, EveryKindOfFileThatCanBe)
{
    for (const char* options : {"--compress=none", "--compress=XPRESS", "--compress=LZX",
                                "--compress=LZX --chunk-size=512K", "--check", "--boot"}) {
        SCOPED_TRACE(options);
        Capture(options);
        const std::string before = ReadFile(Image());
        const auto inode = Inode();
        ChangeAndCommit("changed");
        ExpectAppended(before, inode);
        EXPECT_LT(fs::file_size(Image()), before.size() + 10'000);
        EXPECT_EQ(Shell("wimlib-imagex info " + Image().string() + " | grep 'Boot Index'"),
                  std::string("Boot Index:     ") + (strcmp(options, "--boot") == 0 ? "1" : "0") +
                      "\n");
    }
    EXPECT_FALSE(LogSays("written anew"));
}

TEST_F(Append, IntegrityDataThatIsThereCoversWhatIsNew)
{
    // More than the 10 MiB that one hash is of, and not a multiple of them.
    WriteFile(folder_ / "tree/large.bin", std::string(11'000'000, 'l'));
    Capture("--compress=none --check");
    for (const int save : {1, 2}) {
        const std::string before = ReadFile(Image());
        const auto inode = Inode();
        ChangeAndCommit("save " + std::to_string(save), save == 2);
        ExpectAppended(before, inode);
        EXPECT_FALSE(Header().IntegrityTable().IsAbsent());
        Mount(); // looks at the integrity data with --check
        Discard();
        Shell("wimlib-imagex info --check " + Image().string() + " > /dev/null");
    }
}

TEST_F(Append, TheOtherImagesOfTheFileStayAsTheyAre)
{
    Shell("wimlib-imagex append " + (folder_ / "tree").string() + " " + Image().string() +
          " Second --boot");
    const auto details = [&](int index) {
        return Shell("wimlib-imagex dir --detailed " + Image().string() + " " +
                     std::to_string(index));
    };
    const std::string first = details(1), second = details(2);
    auto request = Request();
    request.index = 2;
    Store().Mount(request);
    WriteFile(folder_ / "mount/new.txt", "new");
    Commit();
    ExpectValidImage();
    EXPECT_EQ(details(1), first);
    EXPECT_EQ(FileInImage("/new.txt", 2), "new");
    EXPECT_NE(details(2), second);
    EXPECT_EQ(FileInImage("/Windows/notes.txt", 1), std::string(5000, 'n'));
}

TEST_F(Append, FilesNobodyTouchedStayWhatTheyAre)
{
    for (const char* name : {"first", "second", "third"})
        fs::create_hard_link(folder_ / "tree/Windows/System32/kernel.bin", folder_ / "tree" / name);
    Capture("--compress=XPRESS");
    const auto details = [&] {
        std::string all;
        for (const char* path : {"/first", "/third", "/Windows/System32/kernel.bin"})
            all += Shell("wimlib-imagex dir --detailed --path=" + std::string(path) + " " +
                         Image().string() +
                         " 1 | grep -v 'Link Group ID'"); // libwim numbers the groups anew
        return all;
    };
    const std::string before = details();
    ASSERT_NE(before.find("Link Count          = 4"), std::string::npos);
    Mount();
    WriteFile(folder_ / "mount/Windows/System32/hosts", "changed");
    WriteFile(folder_ / "mount/Windows/new.txt", "new");
    Commit();
    EXPECT_EQ(details(), before);
    // One name of a group that changes leaves the others to each other.
    Mount();
    fs::remove(folder_ / "mount/second");
    Commit();
    ExpectValidImage();
    EXPECT_EQ(FileInImage("/third"), Noise(1, 100'000));
}

TEST_F(Append, WhatAKilledAppendLeftIsWrittenOver)
{
    const std::string clean = ReadFile(Image());
    for (const std::size_t left : {100U, 1'000'000U}) {
        const auto inode = Inode();
        std::ofstream(Image(), std::ios::binary | std::ios::app) << Noise(9, left);
        ChangeAndCommit("over " + std::to_string(left));
        if (left == 100)
            ExpectAppended(clean, inode);
        EXPECT_EQ(fs::file_size(Image()), Header().End());
    }
}

TEST_F(Append, SeveralSavesOfOneMount)
{
    Mount();
    for (int save = 1; save <= 5; ++save) {
        const std::string before = ReadFile(Image()), mark = std::to_string(save);
        const auto inode = Inode();
        WriteFile(folder_ / "mount/Windows/System32/hosts", "save " + mark);
        WriteFile(folder_ / ("mount/new" + mark), mark);
        fs::remove(folder_ / ("mount/new" + std::to_string(save - 2)));
        Store().Commit(Mounted(), {});
        ExpectAppended(before, inode);
        ExpectValidImage();
        EXPECT_EQ(FileInImage("/Windows/System32/hosts"), "save " + mark);
        EXPECT_EQ(FileInImage("/new" + mark), mark);
    }
    Discard();
    EXPECT_EQ(Listing().find("/new3"), std::string::npos);
}

TEST_F(Append, NotWhereTheFileHasToBeWrittenAnew)
{
    const struct {
        const char* options;
        bool integrity;
        const char* reason;
    } cases[] = {{"--pipable", false, "it is made to be piped"},
                 {"", true, "it has no integrity data yet"}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.reason);
        Capture(one.options);
        const auto inode = Inode();
        ChangeAndCommit(one.reason, one.integrity);
        EXPECT_NE(Inode(), inode);
        EXPECT_TRUE(LogSays(std::string("is written anew: ") + one.reason));
    }
}

TEST_F(Append, IntegrityDataWithoutAChangeIsWrittenOnce)
{
    Mount();
    EXPECT_TRUE(Store().Commit(Mounted(), {.integrity = true}));
    ExpectValidImage();
    const std::string first = ReadFile(Image());
    EXPECT_FALSE(Header().IntegrityTable().IsAbsent());
    EXPECT_TRUE(Store().Commit(Mounted(), {.integrity = true}));
    EXPECT_TRUE(ReadFile(Image()) == first);
    Discard();
}

// Each save leaves the tables of the one before; what was deleted leaves its content.
TEST_F(Append, SpaceThatIsNotUsedIsGivenBackAtAnUnmount)
{
    Capture("--compress=none");
    Mount();
    WriteFile(folder_ / "mount/large.bin", std::string(70 << 20, 'l'));
    Store().Commit(Mounted(), {});
    fs::remove(folder_ / "mount/large.bin");
    Store().Commit(Mounted(), {});
    EXPECT_GT(fs::file_size(Image()), 70U << 20);
    WriteFile(folder_ / "mount/small.txt", "small");
    Commit();
    EXPECT_LT(fs::file_size(Image()), 1U << 20);
    ExpectValidImage();
    EXPECT_EQ(FileInImage("/small.txt"), "small");
    EXPECT_TRUE(LogSays("much of it is not in use any more"));
    ExpectNothingLeft();
}

TEST_F(Append, AnotherToolsAppendDuringASaveIsNotOverwritten)
{
    Mount();
    WriteFile(folder_ / "mount/large.bin", Noise(7, 300'000));
    std::string others;
    const auto append = [&](unsigned, unsigned) {
        if (others.empty()) { // it does not heed the lock: it writes to a copy and puts that back
            const std::string copy = (folder_ / "copy.wim").string();
            Shell("cp " + Image().string() + " " + copy + " && wimlib-imagex append " +
                  (folder_ / "tree").string() + " " + copy + " More && cat " + copy + " > " +
                  Image().string());
            others = ReadFile(Image());
        }
        return true;
    };
    EXPECT_CODE(Store().CommitAndUnmount(Mounted(), {}, append), code::image_file_changed);
    EXPECT_TRUE(ReadFile(Image()) == others);
    EXPECT_CODE(Commit(), code::image_file_changed);
    EXPECT_EQ(ReadFile(folder_ / "mount/large.bin"), Noise(7, 300'000));
    Discard();
    EXPECT_TRUE(ReadFile(Image()) == others);
    ExpectNothingLeft();
}

} // namespace
} // namespace kestro::test
