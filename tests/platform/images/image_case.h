// image_case.h - what the tests of the image store share: a folder of their own, a tree, an image file
// made by wimlib-imagex, and wimlib-imagex as the judge.
#pragma once

#include "files.h"
#include "image_store.h"
#include "refusal.h"
#include "servicing_error.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace kestro::test {

class ImageCase : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    servicing::ImageStore Store() const;
    // With another program that serves images; none where it is empty.
    servicing::ImageStore Store(const std::string& server) const;
    servicing::MountRequest Request() const;
    // How this run of the tests mounts: KESTRO_MOUNT says "lazy", or everything is extracted.
    static servicing::MountWay Way();
    static bool IsLazy() { return Way() == servicing::MountWay::Lazy; }
    void Mount() const { Store().Mount(Request()); }
    void Commit() const { Store().CommitAndUnmount(Mounted(), {}); }
    void Discard() const { Store().Discard(Mounted()); }
    std::string Mounted() const { return folder_ / "mount"; }
    fs::path Image() const { return image_; }
    void EndServing() const;
    // As a restart of the machine does.
    void UnmountEverything() const;
    // The image file gets a folder, or a disk, of its own.
    void MoveImageTo(const fs::path& folder);

    // What wimlib-imagex finds in the image.
    std::string Listing(int index = 1) const;
    std::string FileInImage(const std::string& path, int index = 1) const;
    void ExpectValidImage() const;
    // No record and no unfinished file is left.
    void ExpectNothingLeft() const;
    void ExpectNothingUnfinished() const;

    fs::path folder_;

  private:
    fs::path image_;
};

} // namespace kestro::test

// For what is so only where images are extracted.
#define SKIP_IF_LAZY(reason)                                                                       \
    if (IsLazy())                                                                                  \
    GTEST_SKIP() << (reason)

// Where nothing can be mounted lazily, nothing of it can be tested.
#define SKIP_WITHOUT_LAZY_MOUNTS()                                                                 \
    try {                                                                                          \
        kestro::servicing::LazyMount::RequireSystem();                                             \
    } catch (const kestro::servicing::ServicingError& error) {                                     \
        GTEST_SKIP() << error.what();                                                              \
    }
