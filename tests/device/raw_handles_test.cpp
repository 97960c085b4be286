// raw_handles_test.cpp - OpenVdFile and OpenPhDrive on real files: sharing, nothing created, and the
// rules of unbuffered writes.
#include "kestro.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <windows.h>

namespace {

namespace fs = std::filesystem;

class RawHandles : public testing::Test {
  protected:
    void SetUp() override
    {
        wchar_t base[MAX_PATH];
        ASSERT_NE(GetTempPathW(MAX_PATH, base), 0u);
        folder_ = fs::path(base) / (L"kestro-raw-" + std::to_wstring(GetCurrentProcessId()));
        fs::create_directory(folder_);
        file_ = folder_ / L"disk \u00e9.img";
        std::ofstream(file_, std::ios::binary) << std::string(8192, 'a');
    }
    void TearDown() override { fs::remove_all(folder_); }

    static HANDLE Open(const fs::path& path, DWORD access)
    {
        return CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    }
    static void ExpectOpens(const fs::path& path, DWORD access)
    {
        const HANDLE handle = Open(path, access);
        EXPECT_NE(handle, INVALID_HANDLE_VALUE) << "last error " << GetLastError();
        CloseHandle(handle);
    }
    static void ExpectSharingViolation(const fs::path& path, DWORD access)
    {
        const HANDLE handle = Open(path, access);
        EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
        EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
        if (handle != INVALID_HANDLE_VALUE)
            CloseHandle(handle);
    }

    fs::path folder_;
    fs::path file_;
};

TEST_F(RawHandles, AFileIsReadAndSharedWithReadersOnly)
{
    const HANDLE handle = OpenVdFile(file_.c_str());
    ASSERT_NE(handle, nullptr);

    char buffer[4] = {};
    DWORD moved = 0;
    EXPECT_TRUE(ReadFile(handle, buffer, sizeof buffer, &moved, nullptr));
    EXPECT_EQ(std::string(buffer, moved), "aaaa");
    EXPECT_FALSE(WriteFile(handle, buffer, sizeof buffer, &moved, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});

    ExpectOpens(file_, GENERIC_READ);
    ExpectSharingViolation(file_, GENERIC_WRITE);
    CloseHandle(handle);
    ExpectOpens(file_, GENERIC_WRITE);
}

TEST_F(RawHandles, ADriveIsWrittenAndNotShared)
{
    const HANDLE handle = OpenPhDrive(file_.c_str());
    ASSERT_NE(handle, nullptr);

    char byte = 0;
    DWORD moved = 0;
    EXPECT_FALSE(ReadFile(handle, &byte, 1, &moved, nullptr));
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});

    ExpectSharingViolation(file_, GENERIC_READ);
    ExpectSharingViolation(file_, GENERIC_WRITE);
    EXPECT_EQ(OpenPhDrive(file_.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    CloseHandle(handle);
    ExpectOpens(file_, GENERIC_READ);
}

TEST_F(RawHandles, AnOpenFileCannotBecomeADrive)
{
    const HANDLE reader = OpenVdFile(file_.c_str());
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(OpenPhDrive(file_.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
    CloseHandle(reader);
}

TEST_F(RawHandles, UnbufferedWritesThatMeetTheRulesReachTheFile)
{
    const HANDLE handle = OpenPhDrive(file_.c_str());
    ASSERT_NE(handle, nullptr);

    // Whole pages: aligned buffer, length and offset.
    constexpr DWORD page = 4096;
    void* const buffer = VirtualAlloc(nullptr, page, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    ASSERT_NE(buffer, nullptr);
    std::memset(buffer, 'b', page);
    LARGE_INTEGER offset;
    offset.QuadPart = page;
    ASSERT_TRUE(SetFilePointerEx(handle, offset, nullptr, FILE_BEGIN));
    DWORD moved = 0;
    EXPECT_TRUE(WriteFile(handle, buffer, page, &moved, nullptr)) << GetLastError();
    EXPECT_EQ(moved, page);
    VirtualFree(buffer, 0, MEM_RELEASE);
    CloseHandle(handle);

    std::ifstream stream(file_, std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(stream), {});
    EXPECT_EQ(content, std::string(page, 'a') + std::string(page, 'b'));
}

TEST_F(RawHandles, NothingIsCreated)
{
    const fs::path missing = folder_ / L"missing.img";
    EXPECT_EQ(OpenVdFile(missing.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_EQ(OpenPhDrive(missing.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
    EXPECT_FALSE(fs::exists(missing));

    const fs::path nowhere = folder_ / L"no folder" / L"disk.img";
    EXPECT_EQ(OpenVdFile(nowhere.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
}

TEST_F(RawHandles, BadPathsFailWithTheSystemsReason)
{
    EXPECT_EQ(OpenVdFile(L""), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
    EXPECT_EQ(OpenPhDrive(folder_.c_str()), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_ACCESS_DENIED});
}

} // namespace
