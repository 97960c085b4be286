// operations_test.cpp - the companion's operations on the embedded platform, in both forms.
#include "kestro.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace kestro {
namespace {

namespace fs = std::filesystem;

// Loaded once: the program's own copy stays for all tests.
const Library& TheLibrary()
{
    static const Library library(KESTRO_DLL);
    return library;
}

class OperationsIn : public testing::TestWithParam<Form> {
  protected:
    void SetUp() override
    {
        folder_ = fs::temp_directory_path() /
                  (L"kestro-companion-" + std::to_wstring(GetCurrentProcessId()));
        fs::create_directories(folder_ / L"image/Windows/INF");
        fs::copy(KESTRO_SAMPLES, folder_ / L"package", fs::copy_options::recursive);
    }
    void TearDown() override { fs::remove_all(folder_); }

    Operations Kestro() const { return Operations(TheLibrary(), GetParam()); }
    std::wstring Image() const { return folder_ / L"image"; }
    std::wstring Inf() const { return folder_ / L"package/kestrohid.inf"; }
    Files NewFiles()
    {
        return {folder_ / L"dism.log", folder_ / (L"result" + std::to_wstring(++files_) + L".ini")};
    }

    fs::path folder_;
    int files_ = 0;
};

TEST_P(OperationsIn, APackageFromInToOut)
{
    const Operations kestro = Kestro();
    const Outcome added = kestro.AddDriver(Image(), Inf(), NewFiles());
    EXPECT_TRUE(added.succeeded);
    EXPECT_EQ(added.step, "");

    const DriverListing listing = kestro.GetDrivers(Image(), NewFiles());
    EXPECT_TRUE(listing.succeeded);
    ASSERT_EQ(listing.packages.size(), 1u);
    EXPECT_EQ(listing.packages[0].publishedName, "oem0.inf");
    EXPECT_TRUE(listing.packages[0].originalFileName.ends_with("\\kestrohid.inf"));

    EXPECT_TRUE(kestro.RemoveDriver(Image(), L"oem0.inf", NewFiles()).succeeded);
    EXPECT_TRUE(kestro.GetDrivers(Image(), NewFiles()).packages.empty());
}

TEST_P(OperationsIn, AFailureTellsItsStepAndCode)
{
    const Outcome outcome = Kestro().RemoveDriver(Image(), L"oem5.inf", NewFiles());
    EXPECT_FALSE(outcome.succeeded);
    ASSERT_TRUE(outcome.failure);
    EXPECT_EQ(outcome.failure->function, "DismRemoveDriver");
    EXPECT_EQ(static_cast<std::uint32_t>(outcome.failure->hresult), 0x80070002u);
    EXPECT_EQ(outcome.step, "DISM_REMOVEDRIVER");
    EXPECT_TRUE(outcome.lastError);
}

TEST_P(OperationsIn, AQueryLeavesASessionThatCloses)
{
    const Operations kestro = Kestro();
    ASSERT_TRUE(kestro.AddDriver(Image(), Inf(), NewFiles()).succeeded);
    {
        const DriverDetails details = kestro.GetDriverInfo(Image(), L"oem0.inf", NewFiles());
        ASSERT_TRUE(details.succeeded);
        ASSERT_TRUE(details.package);
        EXPECT_EQ(details.package->className, "HIDClass");
        EXPECT_EQ(details.package->version, "1.3.0.0");
        EXPECT_EQ(details.package->date, "2016-04-21");
        EXPECT_EQ(details.package->signature, PackageDetails::Signature::Signed);
        ASSERT_FALSE(details.devices.empty());
        EXPECT_TRUE(details.devices[0].hardwareId.starts_with("USB\\VID_"));
        EXPECT_TRUE(details.session);
        // Nothing else works while it is open.
        const Outcome meanwhile = kestro.RemoveDriver(Image(), L"oem0.inf", NewFiles());
        EXPECT_FALSE(meanwhile.succeeded);
        EXPECT_EQ(meanwhile.step, "DISM_INITIALIZE");
    }
    EXPECT_TRUE(kestro.RemoveDriver(Image(), L"oem0.inf", NewFiles()).succeeded);
}

TEST_P(OperationsIn, AFailedQueryIsToldFromOneThatWorked)
{
    const DriverDetails details = Kestro().GetDriverInfo(Image(), L"oem0.inf", NewFiles());
    EXPECT_FALSE(details.succeeded);
    ASSERT_TRUE(details.failure);
    EXPECT_EQ(details.failure->function, "DismGetDriverInfo");
    EXPECT_EQ(static_cast<std::uint32_t>(details.failure->hresult), 0x80070002u);
    EXPECT_FALSE(details.session);

    const DriverDetails elsewhere =
        Kestro().GetDriverInfo(folder_ / L"none", L"oem0.inf", NewFiles());
    ASSERT_TRUE(elsewhere.failure);
    EXPECT_EQ(elsewhere.failure->function, "DismOpenSession");
    EXPECT_EQ(elsewhere.step, "DISM_OPENSESSION");
    // Both closed what they opened.
    EXPECT_TRUE(Kestro().GetDrivers(Image(), NewFiles()).succeeded);
}

TEST_P(OperationsIn, AListOfAnyLength)
{
    std::vector<std::wstring> infs;
    for (int i = 0; i < 11; ++i)
        infs.push_back(i == 4 ? folder_ / L"none.inf" : fs::path(Inf()));
    std::vector<std::wstring> results;
    const auto outcomes =
        Kestro().AddDrivers(Image(), infs, folder_ / L"dism.log", [&](std::size_t call) {
            results.push_back(folder_ / (L"list" + std::to_wstring(call) + L".ini"));
            return results.back();
        });
    ASSERT_EQ(outcomes.size(), 2u);
    EXPECT_EQ(results.size(), 2u);
    EXPECT_TRUE(outcomes[0].succeeded);
    ASSERT_EQ(outcomes[0].packages.size(), 8u);
    ASSERT_EQ(outcomes[1].packages.size(), 3u);
    for (std::size_t i = 0; i < 8; ++i)
        EXPECT_EQ(outcomes[0].packages[i].added, i != 4) << i;
}

TEST_P(OperationsIn, FilesAndDisksOfTheSystem)
{
    const Operations kestro = Kestro();
    std::ofstream(folder_ / L"disk.img") << "content";
    EXPECT_TRUE(kestro.OpenVdFile(folder_ / L"disk.img"));
    EXPECT_TRUE(kestro.OpenPhDrive(folder_ / L"disk.img"));
    EXPECT_FALSE(kestro.OpenVdFile(folder_ / L"none.img"));

    const DiskOutcome online = kestro.OnlineDisk(L"\\\\?\\NoSuchDisk");
    EXPECT_FALSE(online.succeeded);
    EXPECT_FALSE(online.found);
    const DiskOutcome clean = kestro.CleanDisk(L"\\\\?\\NoSuchDisk", {}, folder_ / L"clean.ini");
    EXPECT_FALSE(clean.succeeded);
    EXPECT_FALSE(clean.found);
    EXPECT_FALSE(clean.failure);
}

// A disk call may consume an initialisation of COM, but never one that the thread made itself.
TEST_P(OperationsIn, TheThreadsOwnComStays)
{
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    Kestro().OnlineDisk(L"\\\\?\\NoSuchDisk");
    Kestro().CleanDisk(L"\\\\?\\NoSuchDisk", {}, folder_ / L"clean.ini");
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
    CoUninitialize();
    CoUninitialize();
    EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
    CoUninitialize();
}

TEST_P(OperationsIn, WriteTestReadsBack)
{
    EXPECT_TRUE(Kestro().WriteTest(folder_ / L"write test.ini").succeeded);
    EXPECT_FALSE(Kestro().WriteTest(folder_ / L"none/write test.ini").succeeded);
}

TEST_P(OperationsIn, ARunnerMakesTheCall)
{
    std::wstring told;
    const Operations kestro(TheLibrary(), GetParam(),
                            [&](const std::function<void()>& call, const std::wstring& result) {
                                told = result;
                                call();
                            });
    const Files files = NewFiles();
    EXPECT_TRUE(kestro.GetDrivers(Image(), files).succeeded);
    EXPECT_EQ(told, files.result);
}

INSTANTIATE_TEST_SUITE_P(Forms, OperationsIn, testing::Values(Form::Narrow, Form::Wide),
                         [](const auto& form) {
                             return form.param == Form::Narrow ? "Narrow" : "Wide";
                         });

TEST(LibraryFile, OneThatIsMissingIsAnError)
{
    EXPECT_THROW(Library(L"Z:\\no such folder\\Kestro.dll"), LoadError);
}

} // namespace
} // namespace kestro
