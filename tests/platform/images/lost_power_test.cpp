// lost_power_test.cpp - the power fails while an image file is saved into. Whatever part of what was not
// synced yet a disk has kept, the image file is the old one or the new one, and the next save goes on.
#include "image_case.h"
#include "lost_power.h"

#include <algorithm>

namespace kestro::test {
namespace {

namespace code = servicing::code;

class PowerLost : public ImageCase {
  protected:
    // The image file and the mount's record; what stands in for the image file means nothing afterwards.
    Files ReadDisk() const
    {
        Files files = {{Image().string(), ReadFile(Image())}};
        for (const auto& entry : fs::recursive_directory_iterator(folder_ / "records"))
            if (entry.is_regular_file() && !IsLeftOut(entry.path()))
                files[entry.path().string()] = ReadFile(entry.path());
        return files;
    }
    void WriteDisk(const Files& files) const
    {
        for (const auto& [path, content] : ReadDisk())
            if (files.count(path) == 0)
                fs::remove(path);
        for (const auto& [path, content] : files)
            WriteFile(path, content);
    }
    // The stand-in, what is written into it while it is mounted, and what is mounted itself.
    static bool IsLeftOut(const fs::path& path)
    {
        return std::any_of(path.begin(), path.end(), [](const fs::path& part) {
            return part.string().starts_with("stand-in") || part.string().starts_with("layers-");
        });
    }
    LostPower RecordSave(const Files& before) const
    {
        std::vector<DiskStep> steps = RunAndRecord([&] { Store().Commit(Mounted(), {}); }, folder_);
        std::erase_if(steps, [&](const DiskStep& step) {
            return IsLeftOut(step.path) || step.path == folder_ / "log";
        });
        return LostPower(before, std::move(steps));
    }
    void ChangeTree() const
    {
        WriteFile(folder_ / "mount/Windows/System32/hosts", "changed");
        WriteFile(folder_ / "mount/Windows/large.bin", Noise(4, 90'000));
        fs::remove(folder_ / "mount/Windows/notes.txt");
    }
    void ExpectSaved() const
    {
        ExpectValidImage();
        EXPECT_EQ(FileInImage("/Windows/System32/hosts"), "changed");
        EXPECT_TRUE(FileInImage("/Windows/large.bin") == Noise(4, 90'000));
    }
    void SaveUnderPowerFailures(unsigned seeds);
};

void PowerLost::SaveUnderPowerFailures(unsigned seeds)
{
    Mount();
    ChangeTree();
    const Files before = ReadDisk();
    const LostPower failures = RecordSave(before);
    const std::string oldImage = before.at(Image()), newImage = ReadFile(Image());
    ExpectSaved();
    EXPECT_GT(failures.Steps(), 10U);

    int olds = 0, news = 0;
    for (std::size_t steps = 0; steps <= failures.Steps(); ++steps)
        for (unsigned seed = 0; seed < seeds; ++seed) {
            SCOPED_TRACE("power failed after step " + std::to_string(steps) + ", seed " +
                         std::to_string(seed));
            WriteDisk(failures.After(steps, seed));
            const std::string image = ReadFile(Image());
            const bool isNew = image.starts_with(newImage);
            EXPECT_TRUE(isNew || image.starts_with(oldImage));
            ++(isNew ? news : olds);
            EXPECT_CODE(Store().Commit(Mounted(), {}), code::ok);
            EXPECT_EQ(fs::file_size(Image()),
                      servicing::ImageIdentityOf(Image().string()).header.End());
            if (seed == seeds - 1)
                ExpectSaved();
            ASSERT_FALSE(HasFailure());
        }
    EXPECT_GT(olds, 20);
    EXPECT_GT(news, 20);
    Discard();
    ExpectNothingLeft();
}

TEST_F(PowerLost, WhileAFileIsAppendedTo)
{
    SaveUnderPowerFailures(8);
}

TEST_F(PowerLost, WhileAFileWithIntegrityDataIsAppendedTo)
{
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
          " Test --check");
    SaveUnderPowerFailures(6);
}

} // namespace
} // namespace kestro::test
