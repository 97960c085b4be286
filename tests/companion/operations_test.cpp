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

TEST_P(OperationsIn, ADetailsQueryIsWhatTheExportIs)
{
    const Operations kestro = Kestro();
    const Outcome unknown = kestro.GetDriverInfo(Image(), L"oem0.inf", NewFiles());
    EXPECT_FALSE(unknown.succeeded);
    EXPECT_FALSE(unknown.certain); // a failed query is told on standard output alone

    const Outcome elsewhere = kestro.GetDriverInfo(folder_ / L"none", L"oem0.inf", NewFiles());
    EXPECT_FALSE(elsewhere.succeeded);
    EXPECT_TRUE(elsewhere.certain);
    ASSERT_TRUE(elsewhere.failure);
    EXPECT_EQ(elsewhere.failure->function, "DismOpenSession");
    EXPECT_EQ(elsewhere.step, "DISM_OPENSESSION");
    // Both closed what they opened.
    EXPECT_TRUE(kestro.GetDrivers(Image(), NewFiles()).succeeded);
}

TEST_P(OperationsIn, APathThatTheCodePageCannotHoldIsRefusedBeforeTheCall)
{
    const std::wstring hidden = folder_ / L"\u4e2d\u6587.ini";
    bool called = false;
    const Operations kestro(TheLibrary(), GetParam(), [&](const auto& call, const auto&) {
        called = true;
        call();
    });
    const Outcome outcome = kestro.GetDrivers(Image(), {folder_ / L"dism.log", hidden});
    const bool narrow = GetParam() == Form::Narrow;
    EXPECT_EQ(outcome.succeeded, !narrow);
    EXPECT_EQ(called, !narrow);
    if (narrow) {
        ASSERT_TRUE(outcome.failure);
        EXPECT_EQ(outcome.failure->hresult, HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION));
    }
    called = false;
    EXPECT_FALSE(kestro.CleanDisk(L"\\\\?\\NoSuchDisk", {}, hidden).succeeded);
    EXPECT_FALSE(called);
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

// A disk call may consume an initialisation of COM, but never one that the thread made itself, whatever way
// out it takes.
TEST_P(OperationsIn, TheThreadsOwnComStays)
{
    for (const DWORD apartment : {COINIT_MULTITHREADED, COINIT_APARTMENTTHREADED}) {
        ASSERT_EQ(CoInitializeEx(nullptr, apartment), S_OK);
        const auto expectInitialised = [&] {
            EXPECT_EQ(CoInitializeEx(nullptr, apartment), S_FALSE);
            CoUninitialize();
        };
        Kestro().OnlineDisk(L"\\\\?\\NoSuchDisk");
        expectInitialised();
        Kestro().CleanDisk(L"\\\\?\\NoSuchDisk", {}, folder_ / L"clean.ini");
        expectInitialised();
        Kestro().CleanDisk(L"\\\\?\\NoSuchDisk", {}, folder_ / L"no such folder/clean.ini");
        expectInitialised();
        CoUninitialize();
        // And nothing is left behind.
        EXPECT_EQ(CoInitializeEx(nullptr, apartment), S_OK);
        CoUninitialize();
    }
}

TEST_P(OperationsIn, AFailureWhoseReportCannotBeWrittenIsNoSuccess)
{
    const Files files{folder_ / L"dism.log", folder_ / L"no such folder/result.ini"};
    EXPECT_FALSE(Kestro().Mount(folder_ / L"none.wim", Image(), files).succeeded);
    DriverBatch batch;
    batch.Add(folder_ / L"none.inf");
    const DriverListOutcome list = Kestro().AddDrivers(Image(), batch, files);
    ASSERT_EQ(list.packages.size(), 1u);
    EXPECT_FALSE(list.packages[0].added);
    EXPECT_FALSE(list.packages[0].certain);
}

TEST_P(OperationsIn, AListThatCannotBeReadIsNotAnEmptyOne)
{
    const DriverListing listing = Kestro().GetDrivers(
        Image(), {folder_ / L"dism.log", folder_ / L"no such folder/result.ini"});
    EXPECT_FALSE(listing.succeeded);
    EXPECT_FALSE(listing.certain);
}

TEST_P(OperationsIn, WhatAnEarlierCallHasReportedIsNoEvidence)
{
    const Files files = NewFiles();
    DriverBatch batch;
    batch.Add(Inf());
    EXPECT_TRUE(Kestro().AddDrivers(Image(), batch, files).packages.at(0).added);
    fs::remove(Inf());
    // Who reads it like that keeps everybody from writing into it.
    const Handle reader(CreateFileW(files.result.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, 0, nullptr));
    ASSERT_TRUE(reader);
    const DriverListOutcome list = Kestro().AddDrivers(Image(), batch, files);
    ASSERT_EQ(list.packages.size(), 1u);
    EXPECT_FALSE(list.packages[0].added);
    EXPECT_FALSE(list.packages[0].certain);
    EXPECT_FALSE(list.reported);
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
