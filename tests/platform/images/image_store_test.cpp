// image_store_test.cpp - mounting, saving and dropping, judged by wimlib-imagex.
#include "image_case.h"
#include "mount_point.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fcntl.h>

#include <iterator>

namespace kestro::test {
namespace {

namespace code = servicing::code;

TEST_F(ImageCase, ASavedChangeIsInTheImageAndNothingElseIs)
{
    Mount();
    EXPECT_EQ(ReadFile(folder_ / "mount/Windows/System32/kernel.bin"), Noise(1, 100'000));
    WriteFile(folder_ / "mount/Windows/System32/hosts", "changed\r\n");
    WriteFile(folder_ / "mount/Windows/new/deep/new.txt", "new\r\n");
    fs::create_directory(folder_ / "mount/Windows/new empty");
    fs::remove(folder_ / "mount/Windows/notes.txt");
    fs::remove(folder_ / "mount/Windows/Empty");
    Commit();

    ExpectValidImage();
    EXPECT_EQ(Listing(), "/\n/Windows\n/Windows/empty.txt\n/Windows/new\n/Windows/new/deep\n"
                         "/Windows/new/deep/new.txt\n/Windows/new empty\n/Windows/System32\n"
                         "/Windows/System32/hosts\n/Windows/System32/kernel.bin\n");
    EXPECT_EQ(FileInImage("/Windows/System32/hosts"), "changed\r\n");
    EXPECT_EQ(FileInImage("/Windows/new/deep/new.txt"), "new\r\n");
    EXPECT_EQ(FileInImage("/Windows/System32/kernel.bin"), Noise(1, 100'000));
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
}

TEST_F(ImageCase, ADroppedChangeLeavesTheFileByteForByte)
{
    const std::string before = ReadFile(Image());
    Mount();
    WriteFile(folder_ / "mount/Windows/System32/hosts", "changed\r\n");
    fs::create_directory_symlink("/", folder_ / "mount/Windows/root");
    Discard();
    EXPECT_EQ(ReadFile(Image()), before);
    EXPECT_TRUE(fs::is_empty(Mounted()));
    EXPECT_TRUE(fs::exists("/usr")); // what a link points to is not emptied
    ExpectNothingLeft();
}

// Enough of them for several threads.
TEST_F(ImageCase, ManyFilesAreDropped)
{
    Mount();
    for (int i = 0; i < 1000; ++i)
        WriteFile(folder_ / "mount/new" / std::to_string(i % 300) / std::to_string(i), "new");
    fs::permissions(folder_ / "mount/new/7", fs::perms::none);
    fs::create_directory_symlink(folder_ / "tree", folder_ / "mount/new/link");
    Discard();
    EXPECT_TRUE(fs::is_empty(Mounted()));
    EXPECT_TRUE(fs::exists(folder_ / "tree/Windows/notes.txt"));
    ExpectNothingLeft();
}

TEST_F(ImageCase, NothingChangedWritesNothing)
{
    const std::string before = ReadFile(Image());
    Mount();
    Commit();
    EXPECT_EQ(ReadFile(Image()), before);
    ExpectNothingLeft();
}

// What a Windows-made image knows of a file and this machine cannot show stays with unchanged files.
TEST_F(ImageCase, UnchangedFilesKeepWhatTheImageKnowsOfThem)
{
    fs::copy_file(fs::path(KESTRO_SAMPLES) / "empty-dacl.wim", Image(),
                  fs::copy_options::overwrite_existing);
    // The root's entries do change, and so do its times.
    const std::string details =
        "wimlib-imagex dir --detailed " + Image().string() + " 1 | sed '1,/^Link/{/^Last/d}'";
    const std::string before = Shell(details);
    ASSERT_NE(before.find("Security"), std::string::npos);

    Mount();
    WriteFile(folder_ / "mount/new.txt", "new");
    Commit();

    ASSERT_NE(Shell(details).find("\"/new.txt\""), std::string::npos);
    Mount();
    fs::remove(folder_ / "mount/new.txt");
    Commit();
    EXPECT_EQ(Shell(details), before);
}

TEST_F(ImageCase, ATouchedFileCountsAsChangedOnlyIfItsContentDiffers)
{
    Mount();
    const fs::path kernel = folder_ / "mount/Windows/System32/kernel.bin";
    const fs::path notes = folder_ / "mount/Windows/notes.txt";
    struct stat before = {};
    stat(notes.c_str(), &before);
    // The same size and time of last write, another content: only the content can tell.
    WriteFile(notes, std::string(5000, 'm'));
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, notes.c_str(), times, 0), 0);
    ASSERT_EQ(chmod(kernel.c_str(), 0600), 0);
    Commit();
    EXPECT_EQ(FileInImage("/Windows/notes.txt"), std::string(5000, 'm'));
    const std::string log = ReadFile(folder_ / "log");
    EXPECT_NE(log.find("1 new or changed, 0 removed"), std::string::npos) << log;
}

TEST_F(ImageCase, AFileMayBecomeADirectoryAndBack)
{
    Mount();
    fs::remove(folder_ / "mount/Windows/notes.txt");
    WriteFile(folder_ / "mount/Windows/notes.txt/inside.txt", "inside");
    fs::remove(folder_ / "mount/Windows/Empty");
    WriteFile(folder_ / "mount/Windows/Empty", "a file now");
    fs::rename(folder_ / "mount/Windows/System32/hosts", folder_ / "mount/Windows/System32/HOSTS");
    Commit();
    ExpectValidImage();
    EXPECT_EQ(FileInImage("/Windows/notes.txt/inside.txt"), "inside");
    EXPECT_EQ(FileInImage("/Windows/Empty"), "a file now");
    EXPECT_NE(Listing().find("/Windows/System32/HOSTS\n"), std::string::npos);
    EXPECT_EQ(Listing().find("/Windows/System32/hosts\n"), std::string::npos);
}

TEST_F(ImageCase, NamesThatSortAroundASlashAreKeptApart)
{
    for (const char* name : {"a", "a b", "a-b", "a.b", "a0"})
        WriteFile(folder_ / "tree/Sort" / name / "file", name);
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
          " Test");
    Mount();
    fs::remove_all(folder_ / "mount/Sort/a");
    WriteFile(folder_ / "mount/Sort/a.b/file", "longer than before");
    Commit();
    ExpectValidImage();
    EXPECT_EQ(Listing().find("/Sort/a/"), std::string::npos);
    EXPECT_EQ(FileInImage("/Sort/a b/file"), "a b");
    EXPECT_EQ(FileInImage("/Sort/a.b/file"), "longer than before");
}

TEST_F(ImageCase, LinksAreSaved)
{
    Mount();
    fs::create_symlink("System32/hosts", folder_ / "mount/Windows/link");
    fs::create_hard_link(folder_ / "mount/Windows/notes.txt", folder_ / "mount/Windows/notes2.txt");
    Commit();
    ExpectValidImage();
    EXPECT_EQ(FileInImage("/Windows/notes2.txt"), std::string(5000, 'n'));
    Mount();
    EXPECT_EQ(fs::read_symlink(folder_ / "mount/Windows/link"), "System32/hosts");
    Discard();
}

TEST_F(ImageCase, AFileThatNoImageCanHoldIsAnError)
{
    const std::string before = ReadFile(Image());
    Mount();
    ASSERT_EQ(mkfifo((folder_ / "mount/Windows/fifo").c_str(), 0600), 0);
    EXPECT_CODE(Commit(), code::not_supported);
    EXPECT_EQ(ReadFile(Image()), before);
    fs::remove(folder_ / "mount/Windows/fifo");
    WriteFile(folder_ / "mount/Windows/saved.txt", "saved");
    Commit();
    EXPECT_EQ(FileInImage("/Windows/saved.txt"), "saved");
}

TEST_F(ImageCase, SavingWithoutUnmountingGoesOn)
{
    Mount();
    WriteFile(folder_ / "mount/first.txt", "first");
    EXPECT_TRUE(Store().Commit(Mounted(), {}));
    EXPECT_EQ(FileInImage("/first.txt"), "first");
    EXPECT_TRUE(Store().IsMounted(Mounted()));
    WriteFile(folder_ / "mount/second.txt", "second");
    EXPECT_TRUE(Store().Commit(Mounted(), {}));
    Discard();
    EXPECT_EQ(FileInImage("/second.txt"), "second");
    EXPECT_FALSE(Store().Commit(folder_ / "tree", {}));
    ExpectNothingLeft();
}

TEST_F(ImageCase, IntegrityDataIsWrittenWhenAskedFor)
{
    Mount();
    WriteFile(folder_ / "mount/new.txt", "new");
    Store().CommitAndUnmount(Mounted(), {.integrity = true});
    ExpectValidImage();
    EXPECT_EQ(FileInImage("/new.txt"), "new");
    EXPECT_NE(Shell("wimlib-imagex info " + Image().string()).find("Integrity info"),
              std::string::npos);
}

TEST_F(ImageCase, EveryCompression)
{
    for (const char* compression : {"none", "XPRESS", "LZX"}) {
        Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
              " Test --compress=" + compression);
        Mount();
        WriteFile(folder_ / "mount/new.txt", compression);
        Commit();
        ExpectValidImage();
        EXPECT_EQ(FileInImage("/new.txt"), compression);
    }
}

// --- refusals --------------------------------------------------------------------------------------

TEST_F(ImageCase, MountRefusals)
{
    auto request = Request();
    request.image = folder_ / "missing.wim";
    EXPECT_CODE(Store().Mount(request), code::file_not_found);
    request = Request();
    request.index = 2;
    EXPECT_CODE(Store().Mount(request), code::image_index_missing);
    request.index = 0;
    EXPECT_CODE(Store().Mount(request), code::image_index_missing);
    request = Request();
    request.name = "No such name";
    EXPECT_CODE(Store().Mount(request), code::invalid_image_name);
    request = Request();
    request.directory = folder_ / "no such directory";
    EXPECT_CODE(Store().Mount(request), code::directory_missing);
    request.directory = Image();
    EXPECT_CODE(Store().Mount(request), code::directory_missing);
    request.directory = folder_ / "tree";
    EXPECT_CODE(Store().Mount(request), code::directory_not_empty);
    request = Request();
    WriteFile(folder_ / "text.wim", "this is no image file");
    request.image = folder_ / "text.wim";
    EXPECT_CODE(Store().Mount(request), code::bad_format);
    WriteFile(folder_ / "empty.wim", "");
    request.image = folder_ / "empty.wim";
    EXPECT_CODE(Store().Mount(request), code::bad_format);
    WriteFile(folder_ / "cut.wim", ReadFile(Image()).substr(0, 300));
    request.image = folder_ / "cut.wim";
    EXPECT_CODE(Store().Mount(request), code::bad_format);
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
}

TEST_F(ImageCase, AReadOnlyFileIsMountedReadOnly)
{
    chmod(Image().c_str(), 0444);
    EXPECT_CODE(Mount(), code::image_file_read_only);
    auto request = Request();
    request.readOnly = true;
    Store().Mount(request);
    EXPECT_CODE(Commit(), code::mounted_read_only);
    Discard();
    ExpectNothingLeft();
}

TEST_F(ImageCase, CompressionThatCannotBeMounted)
{
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
          " Test --solid");
    EXPECT_CODE(Mount(), code::compression_not_mountable);
}

TEST_F(ImageCase, AnImageThatIsSplitOverFiles)
{
    for (const char* name : {"one.bin", "two.bin"})
        Shell("head -c 1500000 /dev/urandom >" + (folder_ / "tree" / name).string());
    const std::string whole = folder_ / "whole.wim", parts = folder_ / "parts.wim";
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + whole + " Test && " +
          "wimlib-imagex split " + whole + " " + parts + " 2");
    ASSERT_TRUE(fs::exists(folder_ / "parts2.wim"));
    auto request = Request();
    request.image = parts;
    EXPECT_CODE(Store().Mount(request), code::split_image);
}

TEST_F(ImageCase, WhatIsMountedIsNotMountedAgain)
{
    Mount();
    EXPECT_CODE(Mount(), code::directory_in_use);
    auto request = Request();
    request.directory = folder_ / "other";
    fs::create_directory(request.directory);
    EXPECT_CODE(Store().Mount(request), code::image_mounted_read_write);
    Discard();
}

TEST_F(ImageCase, UnmountRefusals)
{
    EXPECT_CODE(Commit(), code::directory_not_mounted);
    EXPECT_CODE(Discard(), code::directory_not_mounted);
    EXPECT_CODE(Store().Discard(folder_ / "no such directory"), code::directory_missing);
    WriteFile(folder_ / "mount/mine.txt", "mine");
    EXPECT_CODE(Discard(), code::directory_not_mounted);
    EXPECT_EQ(ReadFile(folder_ / "mount/mine.txt"), "mine");
}

TEST_F(ImageCase, AnotherDirectoryUnderTheNameIsLeftAlone)
{
    if (IsLazy())
        GTEST_SKIP() << "a directory that something is mounted on keeps its name";
    Mount();
    fs::rename(Mounted(), folder_ / "moved");
    EXPECT_CODE(Commit(), code::not_a_valid_mount);
    WriteFile(folder_ / "mount/mine.txt", "mine");
    EXPECT_CODE(Commit(), code::not_a_valid_mount);
    Discard();
    EXPECT_EQ(ReadFile(folder_ / "mount/mine.txt"), "mine");
    EXPECT_CODE(Discard(), code::directory_not_mounted);
    ExpectNothingLeft();
}

TEST_F(ImageCase, AnImageFileChangedMeanwhileIsNotOverwritten)
{
    Mount();
    Shell("wimlib-imagex append " + (folder_ / "tree").string() + " " + Image().string() + " More");
    const std::string changed = ReadFile(Image());
    WriteFile(folder_ / "mount/new.txt", "new");
    EXPECT_CODE(Commit(), code::image_file_changed);
    EXPECT_EQ(ReadFile(Image()), changed);
    EXPECT_EQ(ReadFile(folder_ / "mount/new.txt"), "new");
    fs::remove(Image());
    EXPECT_CODE(Commit(), code::file_not_found);
    Discard();
}

TEST_F(ImageCase, AnImageFileThatIsReplacedDuringASaveIsNotOverwritten)
{
    Mount();
    WriteFile(folder_ / "mount/large.bin", Noise(7, 300'000));
    const std::string other = ReadFile(Image()) + "somebody's own";
    const auto replace = [&](unsigned, unsigned) {
        WriteFile(folder_ / "other.wim", other);
        fs::rename(folder_ / "other.wim", Image());
        return true;
    };
    EXPECT_CODE(Store().CommitAndUnmount(Mounted(), {}, replace), code::image_file_changed);
    EXPECT_EQ(ReadFile(Image()), other);
    EXPECT_EQ(ReadFile(folder_ / "mount/large.bin"), Noise(7, 300'000));
    Discard();
    ExpectNothingLeft();
}

TEST_F(ImageCase, AFileThatAnotherProgramSavesIntoIsBusy)
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

class OddImages : public ImageCase {
  protected:
    void MountOdd(const fs::path& image)
    {
        fs::copy_file(image, Image(), fs::copy_options::overwrite_existing);
        fs::permissions(Image(), fs::perms::owner_write, fs::perm_options::add);
        Mount();
    }
    void ExpectRefused(const fs::path& image)
    {
        SCOPED_TRACE(image);
        EXPECT_CODE(MountOdd(image), code::bad_format);
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
    }
    // Where files are read only when they are used, whoever reads a damaged one meets the damage.
    void ExpectDamaged(const fs::path& image)
    {
        if (!IsLazy())
            return ExpectRefused(image);
        SCOPED_TRACE(image);
        EXPECT_CODE(MountOdd(image), code::ok);
        Discard();
    }
    // Entries that no directory can hold are left out; nothing lands outside the directory.
    void ExpectEntries(const fs::path& image, int count)
    {
        SCOPED_TRACE(image);
        EXPECT_CODE(MountOdd(image), code::ok);
        EXPECT_EQ(std::distance(fs::directory_iterator(Mounted()), {}), count);
        EXPECT_FALSE(fs::exists(folder_ / "etc"));
        Discard();
    }
    void ExpectServiceable(const fs::path& image)
    {
        SCOPED_TRACE(image);
        EXPECT_CODE(MountOdd(image), code::ok);
        WriteFile(folder_ / "mount/new.txt", image);
        Commit();
        ExpectValidImage();
    }
};

TEST_F(OddImages, GiveACodeOrMountWithoutWhatIsOdd)
{
    const fs::path samples = KESTRO_SAMPLES;
    for (const char* name : {"wrong-hash.wim", "does-not-decompress.wim"})
        ExpectDamaged(samples / name);
    ExpectRefused(samples / "contains-itself.wim");
    ExpectEntries(samples / "climbs-out.wim", 0);
    ExpectEntries(samples / "two-of-one-name.wim", 1);
    for (const char* name : {"long-path.wim", "old-linux-attributes.wim", "empty-dacl.wim"})
        ExpectServiceable(samples / name);
}

TEST_F(OddImages, ThatArePublished)
{
    const fs::path published = KESTRO_PUBLISHED;
    if (!fs::is_directory(published))
        GTEST_SKIP() << "skipped: there are no published image files in " << published;
    for (const char* name : {"corrupted_file_1.wim", "corrupted_file_2.wim"})
        ExpectDamaged(published / name);
    ExpectRefused(published / "cyclic.wim");
    ExpectEntries(published / "dotdot.wim", 0);
    ExpectEntries(published / "duplicate_names.wim", 1);
    for (const char* name : {"longpaths.wim", "linux_xattrs_old.wim", "empty_dacl.wim"})
        ExpectServiceable(published / name);
}

TEST_F(ImageCase, AMountThatCannotBeEmptiedIsFinishedLater)
{
    SKIP_UNLESS_MOUNTABLE(folder_);
    Mount();
    const fs::path busy = folder_ / "mount/busy";
    fs::create_directory(busy);
    {
        const SmallDisk disk(busy, "size=4k");
        WriteFile(busy / "mine.txt", "mine");
        EXPECT_CODE(Discard(), code::partly_unmounted);
        EXPECT_EQ(ReadFile(busy / "mine.txt"), "mine");
    }
    Discard();
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
}

} // namespace
} // namespace kestro::test
