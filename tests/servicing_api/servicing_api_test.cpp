// servicing_api_test.cpp - the state, sessions and records of the embedded servicing API.
#include <windows.h>

#include <dismapi.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr HRESULT notInitialized = static_cast<HRESULT>(0xC0040001);
constexpr HRESULT openSessionHandles = static_cast<HRESULT>(0xC0040003);
constexpr HRESULT invalidSession = static_cast<HRESULT>(0xC0040004);
constexpr HRESULT invalidParameter = static_cast<HRESULT>(0x80070057);
constexpr HRESULT pathNotFound = static_cast<HRESULT>(0x80070003);
constexpr HRESULT fileNotFound = static_cast<HRESULT>(0x80070002);
constexpr HRESULT notSupported = static_cast<HRESULT>(0x80070032);

class ServicingApi : public testing::Test {
  protected:
    void SetUp() override
    {
        wchar_t temporary[MAX_PATH];
        GetTempPathW(MAX_PATH, temporary);
        folder_ = fs::path(temporary) / (L"servicing-" + std::to_wstring(GetCurrentProcessId()));
        fs::create_directories(Image() / L"Windows/INF");
    }
    void TearDown() override
    {
        for (const DismSession session : opened_)
            DismCloseSession(session);
        DismShutdown();
        fs::remove_all(folder_);
    }

    fs::path Image() const { return folder_ / L"image"; }
    void Initialize() const
    {
        ASSERT_EQ(DismInitialize(DismLogErrorsWarningsInfo, (folder_ / L"log").c_str(), nullptr),
                  S_OK);
    }
    DismSession Open(const fs::path& image)
    {
        DismSession session = 0;
        EXPECT_EQ(DismOpenSession(image.c_str(), nullptr, nullptr, &session), S_OK);
        opened_.push_back(session);
        return session;
    }
    fs::path Package(const wchar_t* inf) const
    {
        const fs::path packages = folder_ / L"packages";
        fs::copy(KESTRO_SAMPLES, packages,
                 fs::copy_options::recursive | fs::copy_options::skip_existing);
        return packages / inf;
    }
    fs::path HidPackage() const { return Package(L"kestrohid.inf"); }
    fs::path HealthPackage() const { return Package(L"kestrohealth.inf"); }

    fs::path folder_;
    std::vector<DismSession> opened_;
};

TEST_F(ServicingApi, NothingWorksWithoutInitializing)
{
    DismSession session = 0;
    DismDriverPackage* packages = nullptr;
    DismDriver* drivers = nullptr;
    UINT count = 0;
    EXPECT_EQ(DismShutdown(), notInitialized);
    EXPECT_EQ(DismOpenSession(Image().c_str(), nullptr, nullptr, &session), notInitialized);
    EXPECT_EQ(DismCloseSession(1), notInitialized);
    EXPECT_EQ(DismCommitImage(1, 0, nullptr, nullptr, nullptr), notInitialized);
    EXPECT_EQ(DismAddDriver(1, L"a.inf", FALSE), notInitialized);
    EXPECT_EQ(DismRemoveDriver(1, L"oem0.inf"), notInitialized);
    EXPECT_EQ(DismGetDrivers(1, FALSE, &packages, &count), notInitialized);
    EXPECT_EQ(DismGetDriverInfo(1, L"oem0.inf", &drivers, &count, nullptr), notInitialized);
    EXPECT_EQ(DismUnmountImage(Image().c_str(), DISM_DISCARD_IMAGE, nullptr, nullptr, nullptr),
              notInitialized);
}

TEST_F(ServicingApi, InitializingTwiceFails)
{
    Initialize();
    EXPECT_EQ(DismInitialize(DismLogErrors, nullptr, nullptr),
              HRESULT_FROM_WIN32(ERROR_ALREADY_INITIALIZED));
    EXPECT_EQ(DismShutdown(), S_OK);
    EXPECT_EQ(DismShutdown(), notInitialized);
    Initialize();
}

TEST_F(ServicingApi, OpenSessionsKeepTheApiUp)
{
    Initialize();
    const DismSession session = Open(Image());
    EXPECT_EQ(DismShutdown(), openSessionHandles);
    EXPECT_EQ(DismCloseSession(session), S_OK);
    EXPECT_EQ(DismShutdown(), S_OK);
}

TEST_F(ServicingApi, TwoSessionsOnOneImageAreTwoHandles)
{
    Initialize();
    const DismSession first = Open(Image()), second = Open(Image());
    EXPECT_NE(first, second);
    EXPECT_EQ(DismCloseSession(first), S_OK);
    EXPECT_EQ(DismCommitImage(second, 0, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(DismCloseSession(second), S_OK);
}

TEST_F(ServicingApi, AClosedHandleIsNone)
{
    Initialize();
    const DismSession session = Open(Image());
    EXPECT_EQ(DismCloseSession(session), S_OK);
    UINT count = 0;
    DismDriverPackage* packages = nullptr;
    for (const DismSession none : {session, DismSession{0}, DismSession{12345}}) {
        EXPECT_EQ(DismCloseSession(none), invalidSession);
        EXPECT_EQ(DismAddDriver(none, L"a.inf", FALSE), invalidSession);
        EXPECT_EQ(DismRemoveDriver(none, L"oem0.inf"), invalidSession);
        EXPECT_EQ(DismGetDrivers(none, FALSE, &packages, &count), invalidSession);
        EXPECT_EQ(DismCommitImage(none, 0, nullptr, nullptr, nullptr), invalidSession);
    }
}

TEST_F(ServicingApi, ImagesThatCannotBeOpened)
{
    Initialize();
    DismSession session = 77;
    EXPECT_EQ(DismOpenSession(nullptr, nullptr, nullptr, &session), invalidParameter);
    EXPECT_EQ(DismOpenSession(Image().c_str(), nullptr, nullptr, nullptr), invalidParameter);
    EXPECT_EQ(DismOpenSession((folder_ / L"none").c_str(), nullptr, nullptr, &session),
              pathNotFound);
    EXPECT_EQ(DismOpenSession(folder_.c_str(), nullptr, nullptr, &session), pathNotFound);
    EXPECT_EQ(DismOpenSession(DISM_ONLINE_IMAGE, nullptr, nullptr, &session), notSupported);
    EXPECT_EQ(session, 77u);
}

TEST_F(ServicingApi, ArgumentsThatAreMissing)
{
    Initialize();
    const DismSession session = Open(Image());
    UINT count = 0;
    DismDriver* drivers = nullptr;
    EXPECT_EQ(DismAddDriver(session, nullptr, FALSE), invalidParameter);
    EXPECT_EQ(DismRemoveDriver(session, nullptr), invalidParameter);
    EXPECT_EQ(DismGetDrivers(session, FALSE, nullptr, &count), invalidParameter);
    EXPECT_EQ(DismGetDriverInfo(session, L"oem0.inf", nullptr, &count, nullptr), invalidParameter);
    EXPECT_EQ(DismGetDriverInfo(session, nullptr, &drivers, &count, nullptr), invalidParameter);
    EXPECT_EQ(DismAddDriver(session, (folder_ / L"none.inf").c_str(), FALSE), fileNotFound);
    EXPECT_EQ(DismCloseSession(session), S_OK);
}

TEST_F(ServicingApi, RecordsOfAPackage)
{
    Initialize();
    const DismSession session = Open(Image());
    ASSERT_EQ(DismAddDriver(session, HidPackage().c_str(), FALSE), S_OK);

    DismDriverPackage* packages = nullptr;
    UINT count = 0;
    ASSERT_EQ(DismGetDrivers(session, FALSE, &packages, &count), S_OK);
    ASSERT_EQ(count, 1u);
    const DismDriverPackage package = packages[0];
    EXPECT_STREQ(package.PublishedName, L"oem0.inf");
    const fs::path stored = package.OriginalFileName;
    EXPECT_FALSE(package.InBox);
    EXPECT_STREQ(package.CatalogFile, L"kestrohid.cat");
    EXPECT_STREQ(package.ClassName, L"HIDClass");
    EXPECT_STREQ(package.ClassGuid, L"{745a17a0-74d3-11d0-b6fe-00a0c90f57da}");
    EXPECT_TRUE(package.BootCritical);
    EXPECT_EQ(package.DriverSignature, DismDriverSignatureSigned);
    EXPECT_STREQ(package.ProviderName, L"Kestro Samples");
    EXPECT_EQ(package.Date.wYear, 2016);
    EXPECT_EQ(package.Date.wMonth, 4);
    EXPECT_EQ(package.Date.wDay, 21);
    EXPECT_EQ(package.Date.wDayOfWeek, 4);
    EXPECT_EQ(package.MajorVersion, 1u);
    EXPECT_EQ(package.MinorVersion, 3u);
    EXPECT_EQ(package.Build, 0u);
    EXPECT_EQ(package.Revision, 0u);
    EXPECT_EQ(DismDelete(packages), S_OK);
    EXPECT_EQ(DismDelete(packages), invalidParameter);
    // Closing the session writes what it added.
    EXPECT_EQ(DismCloseSession(session), S_OK);
    EXPECT_TRUE(fs::exists(stored));
}

TEST_F(ServicingApi, OneRecordForEachHardwareId)
{
    Initialize();
    const DismSession session = Open(Image());
    const fs::path inf = HealthPackage();
    for (const bool published : {false, true}) {
        if (published) {
            ASSERT_EQ(DismAddDriver(session, inf.c_str(), FALSE), S_OK);
        }
        DismDriver* drivers = nullptr;
        UINT count = 0;
        DismDriverPackage* package = nullptr;
        ASSERT_EQ(DismGetDriverInfo(session, published ? L"oem0.inf" : inf.c_str(), &drivers,
                                    &count, &package),
                  S_OK);
        ASSERT_EQ(count, 6u);
        std::set<std::wstring> ids;
        for (UINT i = 0; i < count; ++i) {
            ids.insert(drivers[i].HardwareId);
            EXPECT_EQ(drivers[i].Architecture, UINT{PROCESSOR_ARCHITECTURE_AMD64});
            EXPECT_STRNE(drivers[i].ManufacturerName, L"");
            EXPECT_STRNE(drivers[i].HardwareDescription, L"");
        }
        EXPECT_EQ(ids.size(), count);
        EXPECT_STREQ(package->PublishedName, published ? L"oem0.inf" : L"");
        EXPECT_EQ(DismDelete(drivers), S_OK);
        EXPECT_EQ(DismDelete(package), S_OK);
    }
    EXPECT_EQ(DismCloseSession(session), S_OK);
}

TEST_F(ServicingApi, AnEmptyListHasAnAddress)
{
    Initialize();
    const DismSession session = Open(Image());
    DismDriverPackage* packages = nullptr;
    UINT count = 9;
    EXPECT_EQ(DismGetDrivers(session, FALSE, &packages, &count), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_NE(packages, nullptr);
    EXPECT_EQ(DismDelete(packages), S_OK);
    EXPECT_EQ(DismCloseSession(session), S_OK);
}

TEST_F(ServicingApi, InBoxPackagesOnRequest)
{
    fs::copy_file(HidPackage(), Image() / L"Windows/INF/hid.inf");
    Initialize();
    const DismSession session = Open(Image());
    DismDriverPackage* packages = nullptr;
    UINT count = 0;
    EXPECT_EQ(DismGetDrivers(session, TRUE, &packages, &count), S_OK);
    ASSERT_EQ(count, 1u);
    EXPECT_STREQ(packages[0].PublishedName, L"hid.inf");
    EXPECT_TRUE(packages[0].InBox);
    EXPECT_EQ(packages[0].DriverSignature, DismDriverSignatureUnknown);
    EXPECT_EQ(DismDelete(packages), S_OK);
    EXPECT_EQ(DismRemoveDriver(session, L"hid.inf"), notSupported);
    EXPECT_EQ(DismCloseSession(session), S_OK);
}

TEST_F(ServicingApi, TheLastErrorHasAMessage)
{
    Initialize();
    EXPECT_EQ(DismCloseSession(99), invalidSession);
    DismString* message = nullptr;
    ASSERT_EQ(DismGetLastErrorMessage(&message), S_OK);
    EXPECT_NE(std::wstring(message->Value).find(L"0xC0040004"), std::wstring::npos);
    EXPECT_EQ(DismDelete(message), S_OK);
}

TEST_F(ServicingApi, TheLogTellsWhatFailed)
{
    Initialize();
    EXPECT_EQ(DismCloseSession(99), invalidSession);
    EXPECT_EQ(DismShutdown(), S_OK);
    std::ifstream log(folder_ / L"log");
    const std::string text(std::istreambuf_iterator<char>(log), {});
    EXPECT_NE(text.find("Error"), std::string::npos) << text;
    EXPECT_NE(text.find("DismCloseSession failed with 0xC0040004: session 99 is not open"),
              std::string::npos)
        << text;
}

} // namespace
