// full_disk_test.cpp - disks that are full when an image is mounted, saved or dropped.
#include "image_case.h"
#include "mount_point.h"

#include <optional>

namespace kestro::test {
namespace {

namespace code = servicing::code;

class FullDisk : public ImageCase {
  protected:
    void SetUp() override
    {
        ImageCase::SetUp();
        SKIP_UNLESS_MOUNTABLE(folder_);
        disk_ = folder_ / "disk";
        fs::create_directory(disk_);
        small_.emplace(disk_, "size=600k");
    }
    void TearDown() override
    {
        small_.reset();
        ImageCase::TearDown();
    }

    fs::path disk_;
    std::optional<SmallDisk> small_;
};

TEST_F(FullDisk, AMountThatDoesNotFitLeavesNothing)
{
    SKIP_IF_LAZY("an image that is shown takes no room");
    auto request = Request();
    request.directory = disk_ / "mount";
    fs::create_directory(request.directory);
    WriteFile(disk_ / "filler", std::string(530'000, 'f'));
    EXPECT_CODE(Store().Mount(request), code::disk_full);
    EXPECT_TRUE(fs::is_empty(request.directory));
    ExpectNothingLeft();
}

TEST_F(FullDisk, ACommitThatDoesNotFitLosesNothing)
{
    MoveImageTo(disk_);
    const std::string before = ReadFile(Image());
    Mount();
    WriteFile(folder_ / "mount/large.bin", Noise(7, 700'000));
    EXPECT_CODE(Commit(), code::disk_full);
    EXPECT_EQ(ReadFile(Image()), before);
    ExpectNothingUnfinished();
    EXPECT_EQ(ReadFile(folder_ / "mount/large.bin"), Noise(7, 700'000));
    // With room to write, the same changes are saved.
    fs::remove(folder_ / "mount/large.bin");
    WriteFile(folder_ / "mount/small.txt", "small");
    Commit();
    ExpectValidImage();
}

// The disk is full at every write of an append, one after the other.
TEST_F(FullDisk, ACommitThatRunsOutOfRoomAnywhereLosesNothing)
{
    MoveImageTo(disk_);
    const std::string change = Noise(8, 40'000);
    unsigned refused = 0, blocks = 0;
    for (bool saved = false; !saved; ++blocks) {
        SCOPED_TRACE(std::to_string(blocks) + " blocks left");
        const std::string before = ReadFile(Image());
        Mount();
        WriteFile(folder_ / "mount/new.bin", change);
        small_->FillUp(blocks);
        const auto result = CodeOf([&] { Commit(); });
        small_->MakeRoom();
        ExpectValidImage();
        saved = result == code::ok;
        if (saved) {
            EXPECT_TRUE(FileInImage("/new.bin") == change);
        } else {
            EXPECT_EQ(result, code::disk_full);
            EXPECT_TRUE(ReadFile(Image()) == before);
            ++refused;
            Discard();
        }
        ExpectNothingLeft();
    }
    EXPECT_GE(refused, 10U);
    EXPECT_LE(refused, 12U); // what is new, and no second copy of it
}

// --- a full disk below the records -------------------------------------------------------------------

class FullRecords : public ImageCase {
  protected:
    void SetUp() override
    {
        ImageCase::SetUp();
        SKIP_UNLESS_MOUNTABLE(folder_);
        fs::create_directory(folder_ / "records");
        // What is changed in an image that is shown lies there too.
        disk_.emplace(folder_ / "records", IsLazy() ? "size=1m" : "size=64k");
    }
    void TearDown() override
    {
        disk_.reset();
        ImageCase::TearDown();
    }

    std::optional<SmallDisk> disk_;
};

TEST_F(FullRecords, AMountWithoutRoomForItsRecordLeavesNothing)
{
    for (const unsigned blocks : {0U, 1U}) { // none of the record's files, and the first of them
        SCOPED_TRACE(blocks);
        disk_->FillUp(blocks);
        EXPECT_CODE(Mount(), code::disk_full);
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
    }
    disk_->MakeRoom();
    Mount();
    Discard();
}

TEST_F(FullRecords, ASaveWithoutRoomForItsRecordLosesNothing)
{
    const auto save = [&] { Store().Commit(Mounted(), {}); };
    const auto saveAndUnmount = [&] { Commit(); };
    for (const std::function<void()>& call : {std::function<void()>(save), {saveAndUnmount}}) {
        Mount();
        const std::string before = ReadFile(Image());
        WriteFile(folder_ / "mount/Windows/new.txt", before.substr(208));
        disk_->FillUp();
        EXPECT_CODE(call(), code::disk_full);
        EXPECT_EQ(ReadFile(Image()), before);
        ExpectNothingUnfinished();
        disk_->MakeRoom();
        Commit();
        ExpectValidImage();
        EXPECT_EQ(FileInImage("/Windows/new.txt"), before.substr(208));
        ExpectNothingLeft();
    }
}

// The image file may have been saved when the room ends.
TEST_F(FullRecords, ASaveWithRoomForAPartOfItsRecordIsFinishedLater)
{
    for (const unsigned blocks : {1U, 2U, 3U}) {
        SCOPED_TRACE(blocks);
        Mount();
        WriteFile(folder_ / "mount/Windows/new.txt", std::to_string(blocks));
        disk_->FillUp(blocks);
        const auto result = CodeOf([&] { Commit(); });
        EXPECT_TRUE(result == code::ok || result == code::disk_full) << std::hex << result;
        ExpectValidImage();
        disk_->MakeRoom();
        if (result != code::ok)
            Commit();
        EXPECT_EQ(FileInImage("/Windows/new.txt"), std::to_string(blocks));
        ExpectNothingLeft();
    }
}

// Dropping is how room is made.
TEST_F(FullRecords, AMountIsDroppedAllTheSame)
{
    const std::string before = ReadFile(Image());
    Mount();
    disk_->FillUp();
    Discard();
    EXPECT_EQ(ReadFile(Image()), before);
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
}

} // namespace
} // namespace kestro::test
