// image_case.cpp - what the tests of the image store share.
#include "image_case.h"

#include "image_server.h"
#include "mount_table.h"

#include <cstdlib>
#include <fstream>
#include <random>

namespace kestro::test {

void ImageCase::SetUp()
{
    std::string pattern = fs::temp_directory_path() / "kestro-images-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    image_ = folder_ / "image.wim";
    if (Way() == servicing::MountWay::Lazy)
        SKIP_WITHOUT_LAZY_MOUNTS();
    fs::create_directory(Mounted());
    WriteFile(folder_ / "tree/Windows/System32/hosts", "127.0.0.1 localhost\r\n");
    WriteFile(folder_ / "tree/Windows/System32/kernel.bin", Noise(1, 100'000));
    WriteFile(folder_ / "tree/Windows/notes.txt", std::string(5000, 'n'));
    WriteFile(folder_ / "tree/Windows/empty.txt", "");
    fs::create_directory(folder_ / "tree/Windows/Empty");
    Shell("wimlib-imagex capture " + (folder_ / "tree").string() + " " + Image().string() +
          " Test");
}

void ImageCase::TearDown()
{
    // What a failed test has left mounted; nothing is removed below it.
    UnmountEverything();
    fs::remove_all(folder_);
}

void ImageCase::UnmountEverything() const
{
    const auto mounts = servicing::ReadMountTable();
    for (auto mount = mounts.rbegin(); mount != mounts.rend(); ++mount)
        if (mount->directory.starts_with(folder_.string() + "/"))
            servicing::Unmount(mount->directory, servicing::Unmounting::Anyway);
}

void ImageCase::MoveImageTo(const fs::path& folder)
{
    fs::create_directories(folder);
    fs::copy_file(image_, folder / "image.wim");
    fs::remove(image_);
    image_ = folder / "image.wim";
}

servicing::ImageStore ImageCase::Store(const std::string& server) const
{
    return servicing::ImageStore(folder_ / "records",
                                 servicing::PlatformLog(folder_ / "log", servicing::LogLevel::Info),
                                 server);
}

servicing::ImageStore ImageCase::Store() const
{
    return Store(KESTRO_IMAGE_SERVER);
}

servicing::MountWay ImageCase::Way()
{
    const char* const way = std::getenv("KESTRO_MOUNT");
    return way != nullptr && std::string(way) == "lazy" ? servicing::MountWay::Lazy
                                                        : servicing::MountWay::Extracted;
}

servicing::MountRequest ImageCase::Request() const
{
    servicing::MountRequest request;
    request.image = Image();
    request.directory = Mounted();
    request.way = Way();
    return request;
}

void ImageCase::EndServing() const
{
    for (const auto& entry : fs::recursive_directory_iterator(folder_ / "records"))
        if (entry.path().filename() == "served")
            servicing::EndServing(entry.path());
}

std::string ImageCase::Listing(int index) const
{
    return Shell("wimlib-imagex dir " + Image().string() + " " + std::to_string(index));
}

std::string ImageCase::FileInImage(const std::string& path, int index) const
{
    Shell("wimlib-imagex extract " + Image().string() + " " + std::to_string(index) + " '" + path +
          "' --to-stdout > " + (folder_ / "extracted").string());
    return ReadFile(folder_ / "extracted");
}

void ImageCase::ExpectValidImage() const
{
    Shell("wimlib-imagex verify " + Image().string() + " --quiet");
}

void ImageCase::ExpectNothingLeft() const
{
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(folder_ / "records", none))
        EXPECT_FALSE(fs::exists(entry.path() / "record.json")) << entry.path();
    ExpectNothingUnfinished();
}

void ImageCase::ExpectNothingUnfinished() const
{
    for (const auto& entry : fs::directory_iterator(image_.parent_path()))
        EXPECT_EQ(entry.path().string().find(".kestro-"), std::string::npos) << entry.path();
}

} // namespace kestro::test
