// read_only_test.cpp - folders that nothing can be written to when an image is mounted, saved or dropped.
#include "image_case.h"
#include "mount_point.h"

#include <optional>

namespace kestro::test {
namespace {

namespace code = servicing::code;

class ReadOnly : public ImageCase {
  protected:
    void SetUp() override
    {
        ImageCase::SetUp();
        SKIP_UNLESS_MOUNTABLE(folder_);
        MoveImageTo(folder_ / "images");
        fs::create_directory(Records());
        before_ = ReadFile(Image());
    }
    fs::path Records() const { return folder_ / "records"; }
    // New content for the image, of some size: saving it tells its progress.
    void MountAndChange() const
    {
        Mount();
        WriteFile(folder_ / "mount/new.bin", Noise(7, 300'000));
    }
    void ExpectOldImage() const
    {
        EXPECT_TRUE(ReadFile(Image()) == before_);
        ExpectNothingUnfinished();
    }
    // The changes are still there, and can be saved.
    void ExpectCommit() const
    {
        Commit();
        ExpectValidImage();
        EXPECT_TRUE(FileInImage("/new.bin") == Noise(7, 300'000));
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
    }
    // The folder becomes read-only when the work first tells how far it is.
    static servicing::Progress Locking(std::optional<ReadOnlyFolder>& lock, const fs::path& folder)
    {
        return [&lock, folder](unsigned, unsigned) {
            if (!lock)
                lock.emplace(folder);
            return true;
        };
    }

    std::string before_;
};

// --- the image file's folder -------------------------------------------------------------------------

TEST_F(ReadOnly, ImageFoldersCannotBeSavedTo)
{
    MountAndChange();
    {
        const ReadOnlyFolder locked(folder_ / "images");
        EXPECT_CODE(Commit(), code::access_denied);
        EXPECT_CODE(Store().Commit(Mounted(), {}), code::access_denied);
        EXPECT_CODE(Store().CommitAndUnmount(Mounted(), {.integrity = true}), code::access_denied);
        ExpectOldImage();
        ExpectValidImage();
    }
    ExpectCommit();
}

TEST_F(ReadOnly, ImageFoldersAreMountedFromReadOnly)
{
    const ReadOnlyFolder locked(folder_ / "images");
    EXPECT_CODE(Mount(), code::image_file_read_only);
    ExpectNothingLeft();
    auto request = Request();
    request.readOnly = true;
    Store().Mount(request);
    EXPECT_EQ(ReadFile(folder_ / "mount/Windows/System32/kernel.bin"), Noise(1, 100'000));
    Discard();
    ExpectNothingLeft();
}

// --- the mount directory -----------------------------------------------------------------------------

TEST_F(ReadOnly, MountDirectoriesAreNotMountedInto)
{
    SKIP_IF_LAZY("nothing is written into the directory");
    {
        const ReadOnlyFolder locked(Mounted());
        EXPECT_CODE(Mount(), code::access_denied);
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
    }
    MountAndChange();
    ExpectCommit();
}

TEST_F(ReadOnly, MountDirectoriesAreDroppedLater)
{
    SKIP_IF_LAZY("nothing is in the directory that has to be removed");
    MountAndChange();
    {
        const ReadOnlyFolder locked(Mounted());
        EXPECT_CODE(Discard(), code::partly_unmounted);
        EXPECT_TRUE(ReadFile(folder_ / "mount/new.bin") == Noise(7, 300'000));
    }
    EXPECT_CODE(Store().Commit(Mounted(), {}), code::cannot_commit_partial);
    Discard();
    ExpectOldImage();
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
}

TEST_F(ReadOnly, MountDirectoriesAreSavedAndEmptiedLater)
{
    SKIP_IF_LAZY("nothing is in the directory that has to be removed");
    MountAndChange();
    {
        const ReadOnlyFolder locked(Mounted());
        EXPECT_CODE(Commit(), code::partly_unmounted);
        EXPECT_TRUE(FileInImage("/new.bin") == Noise(7, 300'000));
    }
    ExpectCommit();
}

// --- the records -------------------------------------------------------------------------------------

TEST_F(ReadOnly, RecordsStopEveryCallAndLoseNothing)
{
    {
        const ReadOnlyFolder locked(Records());
        EXPECT_CODE(Mount(), code::access_denied);
        EXPECT_TRUE(fs::is_empty(Mounted()));
    }
    MountAndChange();
    {
        const ReadOnlyFolder locked(Records());
        EXPECT_CODE(Commit(), code::access_denied);
        EXPECT_CODE(Store().Commit(Mounted(), {}), code::access_denied);
        EXPECT_CODE(Discard(), code::access_denied);
        ExpectOldImage();
    }
    ExpectCommit();
}

TEST_F(ReadOnly, RecordsDuringASaveTakeItBack)
{
    SKIP_IF_LAZY("the read-only folder would hide what the save has mounted in it");
    MountAndChange();
    {
        std::optional<ReadOnlyFolder> locked;
        // Without a server the save mounts nothing.
        EXPECT_CODE(Store("").CommitAndUnmount(Mounted(), {}, Locking(locked, Records())),
                    code::access_denied);
        EXPECT_TRUE(locked.has_value());
        ExpectOldImage();
    }
    ExpectCommit();
}

// As after a killed mount, only the record is left, which a discard clears away.
TEST_F(ReadOnly, RecordsDuringAMountLeaveItToBeDropped)
{
    SKIP_IF_LAZY("the mount tells no progress");
    {
        std::optional<ReadOnlyFolder> locked;
        EXPECT_CODE(Store().Mount(Request(), Locking(locked, Records())), code::access_denied);
        EXPECT_TRUE(locked.has_value());
        EXPECT_TRUE(fs::is_empty(Mounted()));
    }
    EXPECT_CODE(Commit(), code::cannot_commit_partial);
    Discard();
    ExpectNothingLeft();
    MountAndChange();
    ExpectCommit();
}

} // namespace
} // namespace kestro::test
