// extraction_test.cpp - images with files enough for several parts that are extracted side by side.
#include "image_case.h"
#include "image_extraction.h"
#include "killed_process.h"
#include "mount_point.h"
#include "tree_hashes.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

namespace kestro::test {
namespace {

namespace code = servicing::code;

class ManyFiles : public ImageCase {
  protected:
    static constexpr int kFiles = 300;

    void SetUp() override
    {
        ImageCase::SetUp();
        for (int i = 0; i < kFiles; ++i) {
            const auto seed = static_cast<unsigned>(i);
            WriteFile(Tree(i), i % 7 == 0 ? "" : Noise(seed, i % 50 == 1 ? 60'000 : 300));
        }
        // The same file, and the same content, at both ends of the image.
        fs::create_hard_link(Tree(1), folder_ / "tree/linked");
        fs::create_hard_link(Tree(kFiles - 1), folder_ / "tree/many/0/linked");
        fs::copy_file(Tree(2), folder_ / "tree/same content");
        fs::create_symlink("many/3", folder_ / "tree/relative link");
        fs::create_directory_symlink(folder_ / "tree/many", folder_ / "tree/absolute link");
        fs::create_symlink("nowhere", folder_ / "tree/many/4/dangling link");
        fs::create_directory(folder_ / "tree/many/5/empty directory");
        const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 123'456'700}};
        for (const char* name : {"tree", "tree/many", "tree/many/3", "tree/many/5/empty directory"})
            ASSERT_EQ(utimensat(AT_FDCWD, (folder_ / name).c_str(), times, 0), 0);
        Capture();
    }
    void Capture(const std::string& options = {}) const
    {
        Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
              " Test " + options);
    }
    // Ten directories share the files.
    fs::path Tree(int number) const
    {
        return folder_ / "tree/many" / std::to_string(number % 10) / std::to_string(number);
    }
    // Renames a file in an image that is not compressed; both names have the same length.
    void RenameInImage(const std::string& from, const std::string& to) const
    {
        const auto wide = [](const std::string& text) {
            std::string units;
            for (const char c : text)
                units += {c, '\0'};
            return units;
        };
        std::string image = ReadFile(Image());
        const auto found = image.find(wide(from));
        ASSERT_NE(found, std::string::npos);
        image.replace(found, wide(to).size(), wide(to));
        WriteFile(Image(), WithTreeHashes(image));
    }
    // Every path below a directory with type, mode, size, links, times and a link's target, whose own
    // times no extraction sets.
    static std::string Describe(const std::string& directory)
    {
        return Shell(
            "cd " + directory +
            " && find . -type l -printf '%p %y %n %l\\n' -o -type d -printf '%p %y %m %T@\\n'"
            " -o -printf '%p %y %m %s %n %T@\\n' | sort");
    }
    void ExpectTheImage(const std::string& directory) const
    {
        const std::string reference = folder_ / "reference";
        Shell("wimlib-imagex apply " + Image().string() + " 1 " + reference);
        std::string expected = Describe(reference);
        // A link within the image is made to lead to its new place.
        for (auto at = expected.find(reference); at != std::string::npos;
             at = expected.find(reference))
            expected.replace(at, reference.size(), directory);
        EXPECT_EQ(Describe(directory), expected);
        Shell("diff -r --no-dereference -x 'absolute link' " + reference + " " + directory);
        fs::remove_all(reference);
    }
};

TEST_F(ManyFiles, AreWhatAnotherToolExtracts)
{
    for (const char* compression : {"none", "XPRESS", "LZX"}) {
        SCOPED_TRACE(compression);
        Capture(std::string("--compress=") + compression);
        Mount();
        ExpectTheImage(Mounted());
        EXPECT_EQ(fs::read_symlink(folder_ / "mount/absolute link"), folder_ / "mount/many");
        EXPECT_EQ(fs::hard_link_count(folder_ / "mount/linked"), 2U);
        Discard();
    }
}

TEST_F(ManyFiles, AreReadFromAnImageThatIsMarkedReadOnly)
{
    std::string image = ReadFile(Image());
    image[16] = static_cast<char>(image[16] | 4); // the header's flags
    WriteFile(Image(), image);
    ASSERT_NE(Shell("wimlib-imagex info " + Image().string() + " --header").find("READONLY"),
              std::string::npos);
    EXPECT_CODE(Mount(), code::image_file_read_only);
    auto request = Request();
    request.readOnly = true;
    Store().Mount(request);
    ExpectTheImage(Mounted());
    Discard();
}

TEST_F(ManyFiles, AreAllThereOfEachImageOfAFile)
{
    fs::remove_all(folder_ / "tree/many/7");
    Shell("wimlib-imagex append " + (folder_ / "tree").string() + " " + Image().string() +
          " Second");
    auto request = Request();
    request.name = "Second";
    Store().Mount(request);
    EXPECT_FALSE(fs::exists(folder_ / "mount/many/7"));
    Shell("diff -r --no-dereference -x 'absolute link' " + (folder_ / "tree").string() + " " +
          Mounted());
    Discard();
}

TEST_F(ManyFiles, TellHowFarTheyAreOnTheCallersThread)
{
    std::vector<unsigned> told;
    const auto here = std::this_thread::get_id();
    bool elsewhere = false;
    Store().Mount(Request(), [&](unsigned current, unsigned total) {
        EXPECT_EQ(total, 100U);
        elsewhere = elsewhere || std::this_thread::get_id() != here;
        told.push_back(current);
        return true;
    });
    EXPECT_FALSE(elsewhere);
    ASSERT_FALSE(told.empty());
    EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
    EXPECT_EQ(told.back(), 100U);
    Discard();
}

TEST_F(ManyFiles, AreGivenUpWhenTheProgressSaysSo)
{
    // Files of some size: the progress is asked for between them, and the answer has to arrive.
    for (int i = 0; i < kFiles; ++i)
        WriteFile(Tree(i), Noise(static_cast<unsigned>(i), 100'000));
    Capture();
    const auto mount = [&] { Store().Mount(Request(), [](unsigned, unsigned) { return false; }); };
    EXPECT_CODE(mount(), code::cancelled);
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
    // And when there is so little that it is over before the answer.
    fs::remove_all(folder_ / "tree/many");
    Capture();
    EXPECT_CODE(mount(), code::cancelled);
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
}

TEST_F(ManyFiles, NeedNoThreadsOfTheirOwn)
{
    pthread_attr_t usual, impossible;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    ASSERT_EQ(pthread_getattr_default_np(&impossible), 0);
    pthread_attr_setstacksize(&impossible, std::size_t{1} << 47);
    ASSERT_EQ(pthread_setattr_default_np(&impossible), 0);
    EXPECT_THROW(std::thread([] {}).join(), std::system_error);
    EXPECT_CODE(Mount(), code::ok);
    pthread_setattr_default_np(&usual);
    ExpectTheImage(Mounted());
    Discard();
}

TEST_F(ManyFiles, WithOneThatIsDamagedLeaveNothing)
{
    Capture("--compress=none");
    const std::string whole = ReadFile(Image());
    for (const int number : {1, 51, kFiles - 1}) {
        SCOPED_TRACE(number);
        std::string damaged = whole;
        const auto at = damaged.find(ReadFile(Tree(number)));
        ASSERT_NE(at, std::string::npos);
        damaged[at + 100] = static_cast<char>(damaged[at + 100] ^ 1);
        WriteFile(Image(), damaged);
        EXPECT_CODE(Mount(), code::bad_format);
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
    }
}

TEST_F(ManyFiles, ThatDoNotFitLeaveNothing)
{
    SKIP_UNLESS_MOUNTABLE(folder_);
    const fs::path disk = folder_ / "disk";
    fs::create_directory(disk);
    auto request = Request();
    request.directory = disk / "mount";
    // The room for names ends among the directories and among the files, that for content early and late.
    for (const char* room : {"nr_inodes=8", "nr_inodes=200", "size=40k", "size=1000k"}) {
        SCOPED_TRACE(room);
        const SmallDisk small(disk, room);
        fs::create_directory(request.directory);
        EXPECT_CODE(Store().Mount(request), code::disk_full);
        EXPECT_TRUE(fs::is_empty(request.directory));
        ExpectNothingLeft();
    }
    const SmallDisk large(disk, "size=16m");
    fs::create_directory(request.directory);
    Store().Mount(request);
    ExpectTheImage(request.directory);
    Store().Discard(request.directory);
    ExpectNothingLeft();
}

// An image may hold a name with a slash, which nothing can extract. Its path looks like another file's.
TEST_F(ManyFiles, AreNotTakenForAFileWithASlashInItsName)
{
    WriteFile(folder_ / "tree/a/inner", Noise(1000, 100));
    WriteFile(folder_ / "tree/a/large",
              Noise(1001, 9'000'000)); // between the two in the image file
    WriteFile(folder_ / "tree/aXinner", Noise(1002, 100));
    Capture("--compress=none");
    RenameInImage("aXinner", "a/inner");
    Mount();
    EXPECT_EQ(ReadFile(folder_ / "mount/a/inner"), Noise(1000, 100));
    ExpectTheImage(Mounted());
    Discard();
}

TEST_F(ManyFiles, OfAnImageFileThatIsReplacedMeanwhileAreRefused)
{
    servicing::MountRecord record;
    record.image = Image();
    record.directory = Mounted();
    record.imageIdentity = servicing::ImageIdentityOf(record.image);
    fs::copy_file(Image(), folder_ / "other.wim");
    fs::rename(folder_ / "other.wim", Image());
    EXPECT_CODE(ExtractImage(record, {}), code::image_file_changed);
    EXPECT_TRUE(fs::is_empty(Mounted()));
}

TEST_F(ManyFiles, AreMountedAgainAfterAKill)
{
    const std::string before = ReadFile(Image());
    int kills = 0;
    constexpr int step = 61; // every change of a small image is tried elsewhere
    for (bool killed = true; killed; kills += killed) {
        SCOPED_TRACE("killed before change " + std::to_string(kills * step + 1));
        killed = RunAndKill([&] { Mount(); }, kills * step + 1);
        const auto result = CodeOf([&] { Discard(); });
        EXPECT_TRUE(result == code::ok || result == code::directory_not_mounted)
            << std::hex << result;
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
        EXPECT_EQ(ReadFile(Image()), before);
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 10);
    Mount();
    ExpectTheImage(Mounted());
    Discard();
}

} // namespace
} // namespace kestro::test
