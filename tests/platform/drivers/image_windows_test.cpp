// image_windows_test.cpp - which Windows an image says that it holds.
#include "image_windows.h"

#include "files.h"
#include "minimal_hive.h"
#include "pe_version.h"
#include "refusal.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace kestro::test {
namespace {

using servicing::Architecture;
using servicing::ImageWindows;
using servicing::ReadImageWindows;

// A 64-bit program with nothing but a version resource.
std::string Program(std::uint16_t machine, std::array<std::uint16_t, 4> version)
{
    std::string file(0x400, '\0');
    const auto put = [&](std::size_t at, std::uint32_t value, std::size_t bytes) {
        for (std::size_t i = 0; i < bytes; ++i)
            file[at + i] = static_cast<char>(value >> 8 * i);
    };
    put(0, 0x5A4D, 2);
    put(0x3C, 0x40, 4);
    put(0x40, 0x4550, 4);
    put(0x44, machine, 2);
    put(0x46, 1, 2);    // sections
    put(0x54, 0xF0, 2); // size of the optional header
    put(0x58, 0x20B, 2);
    put(0x58 + 112 + 16, 0x1000, 4); // the resources' address
    const std::size_t section = 0x58 + 0xF0;
    put(section + 12, 0x1000, 4);
    put(section + 16, 0x200, 4);
    put(section + 20, 0x200, 4);
    // Type, name, language, then the data.
    for (const auto& [at, id, next] : {std::tuple{0x200u, 16u, 0x80000020u},
                                       {0x220u, 1u, 0x80000040u},
                                       {0x240u, 0x409u, 0x60u}}) {
        put(at + 14, 1, 2);
        put(at + 16, id, 4);
        put(at + 20, next, 4);
    }
    put(0x260, 0x1080, 4);
    put(0x280 + 40, 0xFEEF04BD, 4);
    put(0x280 + 48, version[1] | static_cast<std::uint32_t>(version[0]) << 16, 4);
    put(0x280 + 52, version[3] | static_cast<std::uint32_t>(version[2]) << 16, 4);
    return file;
}

class ImageWindowsCase : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string pattern = fs::temp_directory_path() / "kestro-windows-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        root_ = pattern;
        fs::create_directories(root_ / "Windows/System32/config");
    }
    void TearDown() override { fs::remove_all(root_); }

    // A hive with what the text says, in the form of registry editors.
    void Write(const std::string& hive, const std::string& text) const
    {
        const fs::path file = root_ / "Windows/System32/config" / hive;
        WriteFile(file, MinimalHive());
        WriteFile(root_ / "text.reg", "Windows Registry Editor Version 5.00\n\n" + text);
        Shell("hivexregedit --merge --prefix 'HKEY' " + file.string() + " " +
              (root_ / "text.reg").string());
    }
    void WriteKernel(std::uint16_t machine, std::array<std::uint16_t, 4> version) const
    {
        WriteFile(root_ / "Windows/System32/ntoskrnl.exe", Program(machine, version));
    }
    void WriteVersion(const std::string& values) const
    {
        Write("SOFTWARE", "[HKEY\\Microsoft]\n\n[HKEY\\Microsoft\\Windows NT]\n\n"
                          "[HKEY\\Microsoft\\Windows NT\\CurrentVersion]\n" +
                              values);
    }

    fs::path root_;
};

TEST_F(ImageWindowsCase, VersionsOfTheRegistry)
{
    WriteVersion("\"CurrentVersion\"=\"6.1\"\n\"CurrentBuildNumber\"=\"7601\"\n");
    auto windows = ReadImageWindows(root_);
    EXPECT_EQ(windows.major, 6u);
    EXPECT_EQ(windows.minor, 1u);
    EXPECT_EQ(windows.build, 7601u);

    WriteVersion(
        "\"CurrentVersion\"=\"6.3\"\n\"CurrentMajorVersionNumber\"=dword:0000000a\n"
        "\"CurrentMinorVersionNumber\"=dword:00000000\n\"CurrentBuildNumber\"=\"22621\"\n");
    windows = ReadImageWindows(root_);
    EXPECT_EQ(windows.major, 10u);
    EXPECT_EQ(windows.minor, 0u);
    EXPECT_EQ(windows.build, 22621u);
}

TEST_F(ImageWindowsCase, TheKernelWhenTheRegistryDoesNotTell)
{
    WriteKernel(0xAA64, {10, 0, 17763, 1});
    const auto windows = ReadImageWindows(root_);
    EXPECT_EQ(windows.architecture, Architecture::Arm64);
    EXPECT_EQ(windows.major, 10u);
    EXPECT_EQ(windows.build, 17763u);

    WriteVersion("\"CurrentVersion\"=\"6.2\"\n\"CurrentBuildNumber\"=\"9200\"\n");
    EXPECT_EQ(ReadImageWindows(root_).build, 9200u);
}

constexpr char kSystem[] = R"([HKEY\Select]
"Current"=dword:00000002

[HKEY\ControlSet001]

[HKEY\ControlSet001\Control]

[HKEY\ControlSet001\Control\ProductOptions]
"ProductType"="WinNT"

[HKEY\ControlSet002]

[HKEY\ControlSet002\Control]

[HKEY\ControlSet002\Control\ProductOptions]
"ProductType"="ServerNT"
"ProductSuite"=hex(7):54,00,65,00,72,00,6d,00,69,00,6e,00,61,00,6c,00,20,00,53,00,65,00,72,00,76,00,65,00,72,00,00,00,44,00,61,00,74,00,61,00,43,00,65,00,6e,00,74,00,65,00,72,00,00,00,00,00

[HKEY\ControlSet002\Control\Nls]

[HKEY\ControlSet002\Control\Nls\Language]
"InstallLanguage"="0409"

[HKEY\ControlSet002\Control\Class]

[HKEY\ControlSet002\Control\Class\{4D36E97B-E325-11CE-BFC1-08002BE10318}]
"BootCritical"=dword:00000001

[HKEY\ControlSet002\Control\Class\{4d36e972-e325-11ce-bfc1-08002be10318}]
"BootCritical"=dword:00000000

[HKEY\ControlSet002\Control\Class\{4d36e97d-e325-11ce-bfc1-08002be10318}]
)";

TEST_F(ImageWindowsCase, WhatTheCurrentControlSetTells)
{
    Write("SYSTEM", kSystem);
    const auto windows = ReadImageWindows(root_);
    EXPECT_EQ(windows.productType, 3u);
    EXPECT_EQ(windows.suiteMask, 0x90u);
    EXPECT_EQ(windows.language, 0x409u);
    EXPECT_FALSE(windows.hasDriverDatabase);
    EXPECT_EQ(windows.classes,
              (std::map<std::string, ImageWindows::BootCritical>{
                  {"{4d36e97b-e325-11ce-bfc1-08002be10318}", ImageWindows::BootCritical::Yes},
                  {"{4d36e972-e325-11ce-bfc1-08002be10318}", ImageWindows::BootCritical::No},
                  {"{4d36e97d-e325-11ce-bfc1-08002be10318}", ImageWindows::BootCritical::Unset}}));
}

TEST_F(ImageWindowsCase, TheGenerationOfTheDriverDatabase)
{
    Write("SYSTEM", "[HKEY\\DriverDatabase]\n");
    EXPECT_TRUE(ReadImageWindows(root_).hasDriverDatabase);
    Write("SYSTEM", "[HKEY\\Select]\n");
    EXPECT_FALSE(ReadImageWindows(root_).hasDriverDatabase);
    Write("DRIVERS", "");
    EXPECT_TRUE(ReadImageWindows(root_).hasDriverDatabase);
}

TEST_F(ImageWindowsCase, AnImageThatTellsNothing)
{
    const auto windows = ReadImageWindows(root_);
    EXPECT_EQ(windows.architecture, Architecture::Amd64);
    EXPECT_EQ(windows.major, 0u);
    EXPECT_TRUE(windows.classes.empty());
}

TEST_F(ImageWindowsCase, ARegistryThatCannotBeRead)
{
    WriteFile(root_ / "Windows/System32/config/SYSTEM", "no hive");
    EXPECT_CODE(ReadImageWindows(root_), 0x800703F1);
}

TEST(ProgramVersion, ProgramsThatHaveNone)
{
    using servicing::VersionOfProgram;
    const std::string program = Program(0x8664, {6, 1, 7601, 17514});
    EXPECT_EQ(VersionOfProgram(program), (std::array<std::uint16_t, 4>{6, 1, 7601, 17514}));
    for (std::size_t size = 0; size < 0x280 + 44; size += 4)
        EXPECT_FALSE(VersionOfProgram(program.substr(0, size))) << size;
    EXPECT_FALSE(VersionOfProgram(std::string(4096, '\xFF')));
}

} // namespace
} // namespace kestro::test
