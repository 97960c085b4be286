// append_test.cpp - a save writes what is new behind what the image file holds, where it can.
#include "image_append.h"
#include "image_case.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace kestro::test {
namespace {

namespace code = servicing::code;

class AppendCase : public ImageCase {
  protected:
    static constexpr std::size_t kHeader = servicing::kImageHeaderSize;

    static ino_t Inode(const fs::path& path)
    {
        struct stat status = {};
        stat(path.c_str(), &status);
        return status.st_ino;
    }
    void ChangeAndCommit() const
    {
        WriteFile(folder_ / "mount/Windows/new.txt", "new");
        Commit();
        ExpectValidImage();
        EXPECT_EQ(FileInImage("/Windows/new.txt"), "new");
        EXPECT_EQ(FileInImage("/Windows/System32/kernel.bin"), Noise(1, 100'000));
        ExpectNothingLeft();
    }
    // The change is saved into another file, which then takes the image file's name.
    void ExpectReplaced() const
    {
        const ino_t before = Inode(Image());
        Mount();
        ChangeAndCommit();
        EXPECT_NE(Inode(Image()), before);
    }
};

TEST_F(AppendCase, WhatTheFileHoldsStaysWhereItIs)
{
    const std::string before = ReadFile(Image());
    const ino_t inode = Inode(Image());
    chmod(Image().c_str(), 0640);
    Mount();
    ChangeAndCommit();
    const std::string after = ReadFile(Image());
    EXPECT_EQ(Inode(Image()), inode);
    EXPECT_NE(after.substr(0, kHeader), before.substr(0, kHeader));
    EXPECT_TRUE(after.compare(kHeader, before.size() - kHeader, before, kHeader) == 0);
    EXPECT_LT(after.size(), before.size() + 20'000); // the file's content is not there twice
    struct stat status = {};
    stat(Image().c_str(), &status);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
}

TEST_F(AppendCase, EveryCompressionAndEachImageOfAFile)
{
    for (const char* compression : {"none", "XPRESS", "LZX"}) {
        SCOPED_TRACE(compression);
        const std::string tree = folder_ / "tree";
        Shell("wimlib-imagex capture " + tree + " " + Image().string() +
              " First --compress=" + compression);
        Shell("wimlib-imagex append " + tree + " " + Image().string() + " Second");
        const ino_t inode = Inode(Image());
        for (const unsigned index : {2U, 1U}) {
            auto request = Request();
            request.index = index;
            Store().Mount(request);
            WriteFile(folder_ / "mount/which.txt", std::to_string(index));
            fs::remove(folder_ / "mount/Windows/notes.txt");
            Commit();
            ExpectValidImage();
        }
        EXPECT_EQ(Inode(Image()), inode);
        EXPECT_EQ(FileInImage("/which.txt", 1), "1");
        EXPECT_EQ(FileInImage("/which.txt", 2), "2");
        EXPECT_EQ(FileInImage("/Windows/System32/hosts", 2), "127.0.0.1 localhost\r\n");
    }
}

// --- image files that cannot be appended to ----------------------------------------------------------

TEST_F(AppendCase, IntegrityDataCoverTheWholeFile)
{
    Shell("wimlib-imagex optimize " + Image().string() + " --check");
    ExpectReplaced();
    EXPECT_NE(Shell("wimlib-imagex info " + Image().string()).find("Integrity info"),
              std::string::npos);
}

TEST_F(AppendCase, BytesBehindTheEndAreNotOverwritten)
{
    const std::string before = ReadFile(Image()) + "somebody's own";
    WriteFile(Image(), before);
    Mount();
    Discard();
    EXPECT_EQ(ReadFile(Image()), before);
    ExpectReplaced();
}

TEST_F(AppendCase, APipableFileIsWrittenAnew)
{
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
          " Test --pipable");
    ExpectReplaced();
}

// --- other programs ----------------------------------------------------------------------------------

TEST_F(AppendCase, AFileThatAnotherProgramSavesIntoIsBusy)
{
    const std::string before = ReadFile(Image());
    Mount();
    WriteFile(folder_ / "mount/Windows/new.txt", "new");
    {
        const servicing::FileDescriptor other(open(Image().c_str(), O_RDWR | O_CLOEXEC));
        ASSERT_EQ(flock(other.Get(), LOCK_EX), 0); // as libwim does
        EXPECT_CODE(Commit(), code::busy);
        EXPECT_EQ(ReadFile(Image()), before);
    }
    Commit();
    EXPECT_EQ(FileInImage("/Windows/new.txt"), "new");
}

// Plans an append as a save does.
servicing::ImageAppend PlanOf(const fs::path& image, const fs::path& tree)
{
    const std::string shadow = image.string() + ".shadow";
    EXPECT_TRUE(servicing::MakeShadow(image, shadow));
    Shell("echo 'add " + tree.string() + " /again' | wimlib-imagex update " + shadow + " 1");
    const auto append = servicing::PlanAppend(image, shadow);
    EXPECT_TRUE(append.has_value());
    return append.value_or(servicing::ImageAppend{});
}

TEST_F(AppendCase, AnInterruptedOneIsUndoneUnlessTheFileIsNoLongerTheSame)
{
    const std::string before = ReadFile(Image());
    const auto identity = servicing::IdentityOf(Image().string());
    const auto append = PlanOf(Image(), folder_ / "tree");
    WriteFile(Image(), before + "the beginnings");
    EXPECT_FALSE(servicing::WasAppended(append, Image()));
    EXPECT_EQ(ReadFile(Image()), before);
    EXPECT_EQ(servicing::IdentityOf(Image().string()), identity);

    std::string other = before + "more";
    other[30] = static_cast<char>(other[30] ^ 1);
    WriteFile(Image(), other);
    EXPECT_FALSE(servicing::WasAppended(append, Image()));
    EXPECT_EQ(ReadFile(Image()), other);
    WriteFile(Image(), before.substr(0, 1000)); // shorter than it ever was
    EXPECT_FALSE(servicing::WasAppended(append, Image()));
    EXPECT_EQ(ReadFile(Image()), before.substr(0, 1000));
    fs::remove(Image());
    EXPECT_FALSE(servicing::WasAppended(append, Image()));

    WriteFile(Image(), before);
    Append(append, Image(), Image().string() + ".shadow");
    EXPECT_TRUE(servicing::WasAppended(append, Image()));
    ExpectValidImage();
    EXPECT_EQ(FileInImage("/again/Windows/System32/kernel.bin"), Noise(1, 100'000));
}

// A tool that changes more than it adds must not have its result taken for an append.
TEST_F(AppendCase, AShadowThatWasWrittenAnewIsNoAppend)
{
    const std::string shadow = Image().string() + ".shadow";
    fs::copy_file(Image(), shadow);
    Shell("wimlib-imagex optimize " + shadow + " --recompress");
    EXPECT_FALSE(servicing::PlanAppend(Image(), shadow).has_value());
}

} // namespace
} // namespace kestro::test
