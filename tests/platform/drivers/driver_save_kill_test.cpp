// driver_save_kill_test.cpp - a process that adds a package to a mounted image and saves it is killed at
// every system call by which it changes the disk. The image file then holds the package or does not, and
// the next call brings it in.
#include "driver_case.h"
#include "image_store.h"
#include "killed_process.h"

namespace kestro::test {
namespace {

// The offline tree is an image that is mounted where the tree was made.
class KilledSaves : public DriverCase {
  protected:
    void SetUp() override
    {
        DriverCase::SetUp();
        Shell("wimlib-imagex capture " + Root().string() + " " + Image() + " Test");
        fs::remove_all(Root());
        fs::create_directory(Root());
        imageWithout_ = ReadFile(Image());
        without_ = Saved();
        package_ = MakePackage("card");
        Mount();
        ExpectWhole(Add(package_), "card");
        with_ = Snapshot();
        Commit();
        EXPECT_TRUE(Saved() == with_);
    }
    std::string Image() const { return folder_ / "image.wim"; }
    servicing::ImageStore Images() const
    {
        return servicing::ImageStore(
            folder_ / "records",
            servicing::PlatformLog(folder_ / "log", servicing::LogLevel::Info));
    }
    void Mount() const
    {
        servicing::MountRequest request;
        request.image = Image();
        request.directory = Root();
        Images().Mount(request);
    }
    void MountWithout() const
    {
        WriteFile(Image(), imageWithout_);
        Mount();
    }
    void Commit() const { Images().CommitAndUnmount(Root(), {}); }
    // What the image file holds, which has to be valid.
    Files Saved() const
    {
        const fs::path tree = folder_ / "saved";
        Shell("wimlib-imagex verify " + Image() + " --quiet");
        Shell("wimlib-imagex apply " + Image() + " 1 " + tree.string());
        Files files = SnapshotOf(tree);
        fs::remove_all(tree);
        return files;
    }
    // The package, and nothing that was left of it.
    void AddAndExpectOnce() const
    {
        EXPECT_EQ(Add(package_).published, "oem0.inf");
        Commit();
        EXPECT_TRUE(Saved() == with_);
    }

    servicing::DriverPackage package_;
    std::string imageWithout_;
    Files without_, with_;
};

TEST_F(KilledSaves, HoldAPackageWholeOrNotAtAll)
{
    int kills = 0, saved = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        MountWithout();
        killed = RunAndKill(
            [&] {
                Add(package_);
                Images().Commit(Root(), {});
            },
            kills + 1);
        const Files now = Saved();
        EXPECT_TRUE(now == without_ || now == with_);
        saved += now == with_;
        AddAndExpectOnce();
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills - saved, 30);
    EXPECT_GT(saved, 3);
}

// Somebody saves what a killed process left, and another mount clears it up.
TEST_F(KilledSaves, PassOnWhatIsLeftToTheNextMount)
{
    int kills = 0;
    for (bool killed = true; killed; ++kills) {
        SCOPED_TRACE("killed before change " + std::to_string(kills + 1));
        MountWithout();
        killed = RunAndKill([&] { Add(package_); }, kills + 1);
        Commit();
        Files now = Saved();
        std::erase_if(now, [](const auto& file) {
            return file.first.starts_with("Windows/System32/DriverStore/kestro-change");
        });
        EXPECT_TRUE(now == with_ || !now.contains("Windows/INF/oem0.inf"));
        Mount();
        AddAndExpectOnce();
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(kills, 15);
}

} // namespace
} // namespace kestro::test
