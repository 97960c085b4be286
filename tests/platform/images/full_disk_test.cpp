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

  private:
    std::optional<SmallDisk> small_;
};

TEST_F(FullDisk, AMountThatDoesNotFitLeavesNothing)
{
    auto request = Request();
    request.directory = disk_ / "mount";
    fs::create_directory(request.directory);
    WriteFile(disk_ / "filler", std::string(530'000, 'f'));
    EXPECT_CODE(Store().Mount(request), code::disk_full);
    EXPECT_TRUE(fs::is_empty(request.directory));
    ExpectNothingLeft();
}

// The new content fits once and not twice.
TEST_F(FullDisk, AnAppendThatDoesNotFitIsTakenBack)
{
    MoveImageTo(disk_);
    const std::string before = ReadFile(Image());
    const auto identity = servicing::IdentityOf(Image());
    Mount();
    WriteFile(folder_ / "mount/large.bin", Noise(7, 300'000));
    EXPECT_CODE(Commit(), code::disk_full);
    EXPECT_EQ(ReadFile(Image()), before);
    EXPECT_EQ(servicing::IdentityOf(Image()), identity);
    ExpectNothingUnfinished();
    fs::resize_file(folder_ / "mount/large.bin", 50'000);
    Commit();
    ExpectValidImage();
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
    EXPECT_EQ(ReadFile(folder_ / "mount/large.bin"), Noise(7, 700'000));
    // With room to write, the same changes are saved.
    fs::remove(folder_ / "mount/large.bin");
    WriteFile(folder_ / "mount/small.txt", "small");
    Commit();
    ExpectValidImage();
}

} // namespace
} // namespace kestro::test
