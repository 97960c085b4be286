// mount_point.h - file systems that lie over a test's folders until the object ends.
#pragma once

#include <filesystem>
#include <string>

namespace kestro::test {

// Whether this process may mount over the folder. Where it may not, nothing below can be tested.
bool CanMountOver(const std::filesystem::path& folder);

class MountPoint {
  public:
    MountPoint(const MountPoint&) = delete;
    MountPoint& operator=(const MountPoint&) = delete;

  protected:
    explicit MountPoint(std::filesystem::path folder) : folder_(std::move(folder)) {}
    ~MountPoint();

    const std::filesystem::path folder_;
};

// The folder as it is, but nothing in it can be changed. Permissions would not keep root out.
class ReadOnlyFolder : public MountPoint {
  public:
    explicit ReadOnlyFolder(const std::filesystem::path& folder);
};

// An empty disk in the folder's place.
class SmallDisk : public MountPoint {
  public:
    // As mount takes them, such as "size=600k".
    SmallDisk(const std::filesystem::path& folder, const std::string& options);

    // Leaves room for so many blocks of 4 KiB.
    void FillUp(unsigned blocksLeft = 0) const;
    // Takes that back.
    void MakeRoom() const;

  private:
    std::filesystem::path Filler() const { return folder_ / "filler"; }
};

} // namespace kestro::test

// For a fixture's SetUp or the beginning of a test.
#define SKIP_UNLESS_MOUNTABLE(folder)                                                              \
    if (!kestro::test::CanMountOver(folder))                                                       \
    GTEST_SKIP() << "file systems cannot be mounted here"
