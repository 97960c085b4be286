// images_test.cpp - the embedded servicing API on image files: what they hold, how far a call is, and ending one.
// The folder that KESTRO_IMAGES names has two.wim, with an image of one large file and one that has languages,
// and an empty directory "mount".
#include <windows.h>

#include <dismapi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr HRESULT invalidParameter = static_cast<HRESULT>(0x80070057);
constexpr HRESULT aborted = HRESULT_FROM_WIN32(ERROR_REQUEST_ABORTED);
constexpr HRESULT notMounted = static_cast<HRESULT>(0xC142010B);
constexpr HRESULT openHandlesAtRemount = static_cast<HRESULT>(0xC004000C);

// Sets the event at the first report after the given percent.
struct Ending {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    UINT after = 1000;
    UINT reports = 0, last = 0;
    bool backwards = false;

    ~Ending() { CloseHandle(event); }
    static void CALLBACK Tell(UINT current, UINT total, PVOID context)
    {
        auto& ending = *static_cast<Ending*>(context);
        EXPECT_LE(current, total);
        ending.backwards = ending.backwards || current < ending.last;
        ending.last = current;
        ++ending.reports;
        if (current >= ending.after)
            SetEvent(ending.event);
    }
};

class Images : public testing::Test {
  protected:
    void SetUp() override
    {
        // Only a mount that takes time can be ended.
        SetEnvironmentVariableW(L"KESTRO_MOUNT", L"extract");
        wchar_t folder[MAX_PATH] = L"";
        ASSERT_NE(GetEnvironmentVariableW(L"KESTRO_IMAGES", folder, MAX_PATH), 0u);
        folder_ = folder;
        ASSERT_EQ(DismInitialize(DismLogErrorsWarningsInfo, (folder_ / L"log").c_str(), nullptr),
                  S_OK);
    }
    void TearDown() override
    {
        DismUnmountImage(Mounted().c_str(), DISM_DISCARD_IMAGE, nullptr, nullptr, nullptr);
        EXPECT_EQ(DismShutdown(), S_OK);
    }

    fs::path File() const { return folder_ / L"two.wim"; }
    fs::path Mounted() const { return folder_ / L"mount"; }
    HRESULT Mount(Ending& ending) const
    {
        return DismMountImage(File().c_str(), Mounted().c_str(), 1, nullptr, DismImageIndex,
                              DISM_MOUNT_READWRITE, ending.event, &Ending::Tell, &ending);
    }
    HRESULT Unmount(DWORD flags, Ending& ending) const
    {
        return DismUnmountImage(Mounted().c_str(), flags, ending.event, &Ending::Tell, &ending);
    }
    void MountAndChange() const
    {
        Ending never;
        ASSERT_EQ(Mount(never), S_OK);
        std::mt19937 random(7);
        std::string content(4 << 20, '\0');
        for (char& byte : content)
            byte = static_cast<char>(random());
        std::ofstream(Mounted() / L"new.bin", std::ios::binary) << content;
    }
    std::string FileContent() const
    {
        std::ifstream stream(File(), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    fs::path folder_;
};

TEST_F(Images, EachIsDescribed)
{
    DismImageInfo* images = nullptr;
    UINT count = 0;
    ASSERT_EQ(DismGetImageInfo(File().c_str(), &images, &count), S_OK);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(images[0].ImageIndex, 1u);
    EXPECT_EQ(images[0].Architecture, UINT{PROCESSOR_ARCHITECTURE_UNKNOWN});
    EXPECT_EQ(images[0].LanguageCount, 0u);
    EXPECT_STREQ(images[0].EditionId, L"");
    const DismImageInfo image = images[1];
    EXPECT_EQ(image.ImageType, DismImageTypeWim);
    EXPECT_EQ(image.ImageIndex, 2u);
    EXPECT_STREQ(image.ImageName, L"Second");
    EXPECT_STREQ(image.ImageDescription, L"With languages");
    EXPECT_EQ(image.ImageSize, UINT64{6});
    EXPECT_EQ(image.Architecture, UINT{PROCESSOR_ARCHITECTURE_AMD64});
    EXPECT_STREQ(image.EditionId, L"Professional");
    EXPECT_EQ(image.MajorVersion, 10u);
    EXPECT_EQ(image.Build, 19041u);
    EXPECT_EQ(image.Bootable, DismImageBootableYes);
    ASSERT_EQ(image.LanguageCount, 2u);
    EXPECT_STREQ(image.Language[0].Value, L"de-DE");
    EXPECT_STREQ(image.Language[1].Value, L"en-US");
    EXPECT_EQ(image.DefaultLanguageIndex, 1u);
    const auto& files = *static_cast<const DismWimCustomizedInfo*>(image.CustomizedInfo);
    EXPECT_EQ(files.Size, sizeof files);
    EXPECT_EQ(files.FileCount, 1u);
    EXPECT_GE(files.CreatedTime.wYear, 2020);
    EXPECT_EQ(DismDelete(images), S_OK);
    EXPECT_EQ(DismDelete(images), invalidParameter);
}

TEST_F(Images, ArgumentsThatAreMissingOrWrong)
{
    DismImageInfo* images = nullptr;
    UINT count = 0;
    EXPECT_EQ(DismGetImageInfo(nullptr, &images, &count), invalidParameter);
    EXPECT_EQ(DismGetImageInfo(File().c_str(), nullptr, &count), invalidParameter);
    EXPECT_EQ(DismGetImageInfo(File().c_str(), &images, nullptr), invalidParameter);
    EXPECT_EQ(DismGetImageInfo((folder_ / L"none.wim").c_str(), &images, &count),
              HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(DismGetImageInfo(Mounted().c_str(), &images, &count),
              HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED));
    EXPECT_EQ(images, nullptr);
    EXPECT_EQ(DismMountImage(File().c_str(), Mounted().c_str(), 1, nullptr, DismImageIndex, 0,
                             reinterpret_cast<HANDLE>(0x1234), nullptr, nullptr),
              invalidParameter);
}

TEST_F(Images, AnEventThatIsSetAlreadyEndsTheCallBeforeItBegins)
{
    Ending ending;
    SetEvent(ending.event);
    EXPECT_EQ(Mount(ending), aborted);
    EXPECT_TRUE(fs::is_empty(Mounted()));
    EXPECT_EQ(ending.reports, 0u);
}

TEST_F(Images, AMountTellsHowFarItIs)
{
    Ending never;
    EXPECT_EQ(Mount(never), S_OK);
    EXPECT_GT(never.reports, 3u);
    EXPECT_FALSE(never.backwards);
    EXPECT_EQ(never.last, 100u);
}

TEST_F(Images, AMountThatIsEndedLeavesNothing)
{
    Ending ending;
    ending.after = 30;
    EXPECT_EQ(Mount(ending), aborted);
    EXPECT_LT(ending.last, 100u);
    EXPECT_TRUE(fs::is_empty(Mounted()));
    Ending never;
    EXPECT_EQ(Mount(never), S_OK);
}

// Images that are shown and not extracted: where that can be done.
class ShownImages : public Images {
  protected:
    void SetUp() override
    {
        Images::SetUp();
        SetEnvironmentVariableW(L"KESTRO_MOUNT", L"lazy");
        Ending never;
        if (const HRESULT result = Mount(never); FAILED(result))
            GTEST_SKIP() << "no image can be shown here: " << std::hex << result;
        EXPECT_EQ(Unmount(DISM_DISCARD_IMAGE, never), S_OK);
    }
    DismMountStatus Status() const
    {
        DismMountedImageInfo* mounts = nullptr;
        UINT count = 0;
        EXPECT_EQ(DismGetMountedImageInfo(&mounts, &count), S_OK);
        DismMountStatus status = DismMountStatusInvalid;
        for (UINT i = 0; i < count; ++i)
            if (fs::path(mounts[i].MountPath) == Mounted())
                status = mounts[i].MountStatus;
        DismDelete(mounts);
        return status;
    }
    // As if the process that shows it had died. Wine runs the system's own programs, too.
    void TakeOff() const
    {
        std::wstring command = L"Z:\\bin\\umount -l " + Mounted().wstring().substr(2);
        std::replace(command.begin() + 12, command.end(), L'\\', L'/');
        STARTUPINFOW start = {};
        start.cb = sizeof start;
        PROCESS_INFORMATION process = {};
        ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                   nullptr, &start, &process));
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        // Nobody tells here when it has ended.
        for (int look = 0; look < 1000 && !fs::is_empty(Mounted()); ++look)
            Sleep(20);
    }
};

TEST_F(ShownImages, AMountTellsHowFarItIsAndLeavesNothingWhenItIsEnded)
{
    for (const UINT after : {0u, 100u}) {
        Ending ending;
        ending.after = after;
        EXPECT_EQ(Mount(ending), aborted);
        EXPECT_EQ(ending.last, after);
        EXPECT_TRUE(fs::is_empty(Mounted()));
        EXPECT_EQ(Status(), DismMountStatusInvalid);
    }
    Ending never;
    EXPECT_EQ(Mount(never), S_OK);
    EXPECT_EQ(never.last, 100u);
    EXPECT_EQ(Status(), DismMountStatusOk);
}

TEST_F(ShownImages, AMountThatNobodyShowsAnyMoreIsPutBack)
{
    Ending never;
    ASSERT_EQ(Mount(never), S_OK);
    fs::create_directories(Mounted() / L"Windows");
    TakeOff();
    EXPECT_TRUE(fs::is_empty(Mounted()));
    EXPECT_EQ(Status(), DismMountStatusNeedsRemount);
    EXPECT_EQ(DismRemountImage(Mounted().c_str()), S_OK);
    EXPECT_EQ(Status(), DismMountStatusOk);
    EXPECT_TRUE(fs::exists(Mounted() / L"large.bin"));
    EXPECT_TRUE(fs::exists(Mounted() / L"Windows"));
}

TEST_F(Images, AMountThatIsWholeStaysAtARemount)
{
    EXPECT_EQ(DismRemountImage(nullptr), invalidParameter);
    EXPECT_EQ(DismRemountImage(Mounted().c_str()), notMounted);
    MountAndChange();
    fs::create_directories(Mounted() / L"Windows");
    DismSession session = 0;
    ASSERT_EQ(DismOpenSession(Mounted().c_str(), nullptr, nullptr, &session), S_OK);
    EXPECT_EQ(DismRemountImage(Mounted().c_str()), openHandlesAtRemount);
    EXPECT_EQ(DismCloseSession(session), S_OK);
    EXPECT_EQ(DismRemountImage(Mounted().c_str()), S_OK);
    EXPECT_TRUE(fs::exists(Mounted() / L"new.bin"));
}

TEST_F(Images, ASaveThatIsEndedLeavesTheImageAndTheMount)
{
    MountAndChange();
    const std::string before = FileContent();
    for (const bool unmount : {true, false}) {
        Ending ending;
        ending.after = 20;
        if (unmount) {
            EXPECT_EQ(Unmount(DISM_COMMIT_IMAGE, ending), aborted);
        } else {
            DismSession session = 0;
            fs::create_directories(Mounted() / L"Windows");
            ASSERT_EQ(DismOpenSession(Mounted().c_str(), nullptr, nullptr, &session), S_OK);
            EXPECT_EQ(DismCommitImage(session, 0, ending.event, &Ending::Tell, &ending), aborted);
            EXPECT_EQ(DismCloseSession(session), S_OK);
        }
        EXPECT_TRUE(FileContent() == before);
        EXPECT_TRUE(fs::exists(Mounted() / L"new.bin"));
    }
    Ending never;
    EXPECT_EQ(Unmount(DISM_COMMIT_IMAGE, never), S_OK);
    EXPECT_GT(never.reports, 0u);
    EXPECT_FALSE(FileContent() == before);
}

} // namespace
