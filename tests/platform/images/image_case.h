// image_case.h - what the tests of the image store share: a folder of their own, a tree, an image file
// made by wimlib-imagex, and wimlib-imagex as the judge.
#pragma once

#include "image_store.h"
#include "servicing_error.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace kestro::test {

namespace fs = std::filesystem;

// Runs a command, returns what it printed, and fails the test if the command failed.
std::string Shell(const std::string& command);
// The same for a command whose failure is the answer.
bool Succeeds(const std::string& command);

std::string ReadFile(const fs::path& path);
void WriteFile(const fs::path& path, const std::string& content);
// Bytes that do not compress, the same for the same seed.
std::string Noise(unsigned seed, std::size_t size);

class ImageCase : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    servicing::ImageStore Store() const;
    servicing::MountRequest Request() const;
    void Mount() const { Store().Mount(Request()); }
    void Commit() const { Store().CommitAndUnmount(Mounted(), {}); }
    void Discard() const { Store().Discard(Mounted()); }
    std::string Mounted() const { return folder_ / "mount"; }
    fs::path Image() const { return folder_ / "image.wim"; }

    // What wimlib-imagex finds in the image.
    std::string Listing(int index = 1) const;
    std::string FileInImage(const std::string& path, int index = 1) const;
    void ExpectValidImage() const;
    // No record and no unfinished file is left.
    void ExpectNothingLeft() const;

    fs::path folder_;
};

// The code that a call fails with; ok when it does not.
template <class Call>
servicing::Code CodeOf(Call call)
{
    try {
        call();
    } catch (const servicing::ServicingError& error) {
        return error.GetCode();
    }
    return servicing::code::ok;
}

} // namespace kestro::test

// Codes are compared, and shown, in hex.
#define EXPECT_CODE(call, expected)                                                                \
    EXPECT_EQ(static_cast<unsigned>(kestro::test::CodeOf([&] { call; })),                          \
              static_cast<unsigned>(expected))                                                     \
        << std::hex << static_cast<unsigned>(expected)
