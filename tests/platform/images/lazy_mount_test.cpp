// lazy_mount_test.cpp - images that are shown and not extracted, whatever way the other tests mount.
#include "image_case.h"
#include "mount_table.h"

#include <sys/stat.h>

#include <csignal>
#include <cstdlib>

namespace kestro::test {
namespace {

namespace code = servicing::code;
using servicing::MountState;

class LazyCase : public ImageCase {
  protected:
    void SetUp() override
    {
        SKIP_WITHOUT_LAZY_MOUNTS();
        ImageCase::SetUp();
    }
    servicing::MountRequest ReadOnly() const
    {
        auto request = Request();
        request.way = servicing::MountWay::Lazy;
        request.readOnly = true;
        return request;
    }
    // Everything that a program can see of a tree. Times as an image holds them.
    static std::string Tree(const std::string& directory)
    {
        return Shell("cd '" + directory +
                     "' && find . -mindepth 1 -type d -printf '%p %y %m %T@\\n' -o"
                     " -printf '%p %y %m %n %s %T@ %l\\n' | sort"
                     " && find . -type f -exec sha1sum {} + | sort");
    }
    std::string Applied() const
    {
        const std::string folder =
            folder_ / "apply"; // a name as long as the mount's: links have sizes
        fs::create_directory(folder);
        Shell("wimlib-imagex apply " + Image().string() + " 1 " + folder);
        return folder;
    }
    void ExpectShownAsApplied() const
    {
        const std::string applied = Applied();
        std::string expected = Tree(applied);
        // A link into the image leads into the directory in which the image is shown.
        for (std::size_t at; (at = expected.find(applied)) != std::string::npos;)
            expected.replace(at, applied.size(), Mounted());
        WriteFile(folder_ / "expected", expected);
        WriteFile(folder_ / "shown", Tree(Mounted()));
        Shell("cd " + folder_.string() + " && diff expected shown");
    }
};

TEST_F(LazyCase, ShowsWhatApplyingExtracts)
{
    fs::create_hard_link(folder_ / "tree/Windows/notes.txt", folder_ / "tree/Windows/notes2.txt");
    fs::create_symlink("System32/hosts", folder_ / "tree/Windows/relative");
    fs::create_symlink(folder_ / "tree/Windows/System32", folder_ / "tree/Windows/inside");
    fs::create_symlink("/usr", folder_ / "tree/Windows/outside");
    WriteFile(folder_ / "tree/\xC3\xA4\xE2\x82\xAC \xF0\x9F\x98\x80, a:b\\c", "odd name");
    const char* const files = std::getenv("KESTRO_SHOWN_FILES");
    for (int i = 0; i < (files != nullptr ? std::atoi(files) : 1000); ++i)
        WriteFile(folder_ / "tree/many" / std::to_string(i), std::to_string(i));
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
          " Test --rpfix");
    Store().Mount(ReadOnly());
    ExpectShownAsApplied();
    EXPECT_CODE(Commit(), code::mounted_read_only);
    Discard();
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
}

// libwim reads what it cannot change.
TEST_F(LazyCase, ShowsSolidImagesReadOnly)
{
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
          " Test --solid");
    Store().Mount(ReadOnly());
    ExpectShownAsApplied();
    Discard();
    try {
        Mount();
        FAIL() << "mounted read-write";
    } catch (const servicing::ServicingError& error) {
        EXPECT_EQ(error.GetCode(), code::compression_not_mountable);
        EXPECT_NE(std::string(error.what()).find("wimlib-imagex export"), std::string::npos);
    }
    ExpectNothingLeft();
}

TEST_F(LazyCase, AMountTellsHowFarItIsAndCanBeEnded)
{
    for (const bool readOnly : {true, false})
        for (const unsigned end : {0U, 100U}) {
            servicing::MountRequest request = ReadOnly();
            request.readOnly = readOnly;
            std::vector<unsigned> told;
            EXPECT_CODE(Store().Mount(request,
                                      [&](unsigned now, unsigned) {
                                          told.push_back(now);
                                          return now < end;
                                      }),
                        code::cancelled);
            EXPECT_EQ(told.back(), end);
            EXPECT_TRUE(fs::is_empty(Mounted()));
            ExpectNothingLeft();
        }
    Store().Mount(ReadOnly());
    Discard();
}

TEST_F(LazyCase, AMountWhoseProcessDiedIsPutBack)
{
    Store().Mount(ReadOnly());
    EndServing();
    ASSERT_EQ(Store().Mounts().size(), 1U);
    EXPECT_EQ(Store().Mounts()[0].state, MountState::NeedsRemount);
    Store().PutBack(Mounted());
    EXPECT_EQ(Store().Mounts()[0].state, MountState::Ok);
    EXPECT_EQ(ReadFile(folder_ / "mount/Windows/System32/hosts"), "127.0.0.1 localhost\r\n");
    Discard();
    ExpectNothingLeft();
}

} // namespace
} // namespace kestro::test
