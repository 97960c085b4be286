// mount_point.cpp - file systems that lie over a test's folders.
#include "mount_point.h"

#include "files.h"

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <fstream>

namespace kestro::test {

bool CanMountOver(const fs::path& folder)
{
    return mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=4k") == 0 &&
           umount2(folder.c_str(), MNT_DETACH) == 0;
}

MountPoint::~MountPoint()
{
    EXPECT_EQ(umount2(folder_.c_str(), MNT_DETACH), 0) << folder_;
}

ReadOnlyFolder::ReadOnlyFolder(const fs::path& folder) : MountPoint(folder)
{
    EXPECT_EQ(mount(folder.c_str(), folder.c_str(), "none", MS_BIND, nullptr), 0) << folder;
    constexpr unsigned long readOnly = MS_BIND | MS_REMOUNT | MS_RDONLY;
    EXPECT_EQ(mount("none", folder.c_str(), "none", readOnly, nullptr), 0) << folder;
}

SmallDisk::SmallDisk(const fs::path& folder, const std::string& options) : MountPoint(folder)
{
    EXPECT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()), 0) << folder;
}

void SmallDisk::FillUp(unsigned blocksLeft) const
{
    std::ofstream filler(Filler(), std::ios::binary);
    const std::string block(4096, 'f');
    while (filler << block << std::flush) {
    }
    filler.close();
    fs::resize_file(Filler(), fs::file_size(Filler()) - blocksLeft * block.size());
}

void SmallDisk::MakeRoom() const
{
    fs::remove(Filler());
}

} // namespace kestro::test
