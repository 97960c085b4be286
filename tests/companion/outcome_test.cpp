// outcome_test.cpp - return senses and driver lists, as kestro.hpp resolves them.
#include "kestro.hpp"

#include <gtest/gtest.h>

namespace kestro {
namespace {

Report Of(const std::string& text)
{
    return ParseResultFile(text);
}

const std::string shutdownOk = "[DISM_MOUNT]\nResult=OK\n";
const std::string mountFailed =
    "[Log]\nRighe=3\n2 - 05-03-2021 14:07:09=DismMountImage Failed. Following error code.\n"
    "3 - 05-03-2021 14:07:09=-2147024894\n[DISM_MOUNT]\nErrorCode=2\nResult=ERR\n";

TEST(Outcomes, ReturnSensesOfBothForms)
{
    EXPECT_TRUE(OutcomeOf(Form::Narrow, 0, Of(shutdownOk)).succeeded);
    EXPECT_TRUE(OutcomeOf(Form::Wide, 1, Of(shutdownOk)).succeeded);
    EXPECT_FALSE(OutcomeOf(Form::Narrow, 1, Of(mountFailed)).succeeded);
    EXPECT_FALSE(OutcomeOf(Form::Wide, 0, Of(mountFailed)).succeeded);
    // The closing shutdown returned another success code than S_OK.
    EXPECT_TRUE(OutcomeOf(Form::Narrow, 1, Of(shutdownOk)).succeeded);
}

TEST(Outcomes, AFailureIsNamedWithItsStep)
{
    const Outcome outcome = OutcomeOf(Form::Wide, 0, Of(mountFailed));
    ASSERT_TRUE(outcome.failure);
    EXPECT_EQ(outcome.failure->function, "DismMountImage");
    EXPECT_EQ(static_cast<std::uint32_t>(outcome.failure->hresult), 0x80070002u);
    EXPECT_EQ(outcome.step, "DISM_MOUNT");
    EXPECT_EQ(outcome.lastError, 2);
}

TEST(Outcomes, WithoutAReportNobodyTellsWhatFailed)
{
    const Outcome outcome = OutcomeOf(Form::Wide, 0, Report());
    EXPECT_FALSE(outcome.succeeded);
    EXPECT_FALSE(outcome.failure);
    EXPECT_EQ(outcome.step, "");
}

TEST(Outcomes, SectionsOfTheFunctions)
{
    EXPECT_EQ(detail::SectionOf("DismMountImage"), "DISM_MOUNT");
    EXPECT_EQ(detail::SectionOf("DismUnmountImage"), "DISM_UNMOUNT");
    EXPECT_EQ(detail::SectionOf("DismCommitImage"), "DISM_COMMITIMAGE");
    EXPECT_EQ(detail::SectionOf("DismGetDrivers"), "DISM_GETDRIVERS");
    EXPECT_EQ(detail::SectionOf(""), "DISM_");
}

// A list's packages fail without failing the session.
TEST(Outcomes, TheSessionsFailureAndNotAPackages)
{
    const Outcome outcome = OutcomeOf(
        Form::Narrow, 1,
        Of("[Log]\nRighe=5\n2 - x=DismAddDriver Failed. Following error code.\n3 - x=-1\n"
           "4 - x=DismCommitImage Failed. Following error code.\n5 - x=-2\n"
           "[DISM_ADDDRIVER]\nC:\\a.inf=OK\n[DISM_COMMITIMAGE]\nErrorCode=9\nResult=ERR\n"));
    ASSERT_TRUE(outcome.failure);
    EXPECT_EQ(outcome.failure->function, "DismCommitImage");
    EXPECT_EQ(outcome.step, "DISM_COMMITIMAGE");
}

TEST(DriverBatches, EightsAndARest)
{
    std::vector<std::wstring> infs;
    EXPECT_TRUE(Batches(infs).empty());
    for (int i = 0; i < 19; ++i)
        infs.push_back(L"C:\\" + std::to_wstring(i) + L".inf");
    const auto batches = Batches(infs);
    ASSERT_EQ(batches.size(), 3u);
    EXPECT_EQ(batches[0].Infs().size(), 8u);
    EXPECT_EQ(batches[2].Infs().size(), 3u);
    const auto entries = batches[2].Entries();
    EXPECT_STREQ(entries[0], L"C:\\16.inf");
    EXPECT_STREQ(entries[2], L"C:\\18.inf");
    // Repeated, and never null.
    for (std::size_t i = 3; i < entries.size(); ++i)
        EXPECT_STREQ(entries[i], L"C:\\18.inf");
}

TEST(DriverBatches, APackageIsFoundByItsPath)
{
    DriverBatch batch;
    for (const wchar_t* inf : {L"C:\\Good.inf", L"C:\\bad.inf", L"C:\\a=b.inf"})
        batch.Add(inf);
    const auto packages =
        detail::PackagesOf(batch, Of("[DISM_ADDDRIVER_ERRORS]\nC:\\BAD.INF=87\nC:\\a=5\n"));
    ASSERT_EQ(packages.size(), 3u);
    EXPECT_TRUE(packages[0].added);
    EXPECT_FALSE(packages[1].added);
    EXPECT_EQ(packages[1].lastError, 87);
    // A profile file ends the key at its first equals sign.
    EXPECT_FALSE(packages[2].added);
}

TEST(Handles, CloseThemselves)
{
    const auto isOpen = [](void* handle) {
        DWORD flags = 0;
        return GetHandleInformation(handle, &flags) != 0;
    };
    void* const raw = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    {
        Handle first(raw);
        Handle second(std::move(first));
        EXPECT_FALSE(first);
        EXPECT_TRUE(second);
        EXPECT_TRUE(isOpen(raw));
    }
    EXPECT_FALSE(isOpen(raw));
    void* const kept = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    EXPECT_EQ(Handle(kept).Release(), kept);
    EXPECT_TRUE(isOpen(kept));
    CloseHandle(kept);
}

} // namespace
} // namespace kestro
