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
    EXPECT_TRUE(OutcomeOf(Form::Narrow, 1, Of(shutdownOk), "DISM_MOUNT").succeeded);
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

// A narrow 1 may say either: only what the file says makes it a success.
TEST(Outcomes, ANarrow1WithoutEvidenceIsNoSuccess)
{
    for (const char* text :
         {"", "[DISM_INITIALIZE]\nResult=OK\n", "[DISM_SHUTDOWN]\nErrorCode=0\n"}) {
        const Outcome outcome = OutcomeOf(Form::Narrow, 1, Of(text));
        EXPECT_FALSE(outcome.succeeded) << text;
        EXPECT_FALSE(outcome.certain) << text;
    }
    const Outcome unread = OutcomeOf(Form::Narrow, 1, std::nullopt);
    EXPECT_FALSE(unread.succeeded);
    EXPECT_FALSE(unread.certain);
    EXPECT_FALSE(unread.reported);
    EXPECT_TRUE(OutcomeOf(Form::Narrow, 1, Of(mountFailed)).certain);
    // The other values speak for themselves.
    EXPECT_TRUE(OutcomeOf(Form::Narrow, 0, std::nullopt).succeeded);
    EXPECT_TRUE(OutcomeOf(Form::Wide, 1, std::nullopt).succeeded);
    EXPECT_TRUE(OutcomeOf(Form::Wide, 0, std::nullopt).certain);
}

TEST(Outcomes, TheLastStepOfACallIsTheEvidence)
{
    const char* const unmounted = "[DISM_UNMOUNT]\nResult=OK\n";
    EXPECT_FALSE(OutcomeOf(Form::Narrow, 1, Of(unmounted)).succeeded);
    EXPECT_TRUE(
        OutcomeOf(Form::Narrow, 1, Of(unmounted + std::string("[DISM_SHUTDOWN]\nResult=OK\n")))
            .succeeded);
    EXPECT_FALSE(OutcomeOf(Form::Narrow, 1,
                           Of("[DISM_MOUNT]\nResult=OK\n[DISM_SHUTDOWN]\nResult=ERR\n"),
                           "DISM_MOUNT")
                     .succeeded);
}

TEST(Outcomes, ADetailsQueryHasItsOwnTable)
{
    const char* const nothing = "[DISM_INITIALIZE]\nResult=OK\n";
    EXPECT_TRUE(DetailsOutcomeOf(Form::Narrow, 0, Of(nothing)).succeeded);
    EXPECT_TRUE(DetailsOutcomeOf(Form::Wide, 1, Of(nothing)).succeeded);
    for (const auto& [form, returned] : {std::pair{Form::Narrow, 1}, {Form::Wide, 0}}) {
        const auto value = static_cast<std::uint8_t>(returned);
        const Outcome outcome = DetailsOutcomeOf(form, value, Of(nothing));
        EXPECT_FALSE(outcome.succeeded);
        EXPECT_FALSE(outcome.certain);
        EXPECT_TRUE(DetailsOutcomeOf(form, value, Of("[DISM_OPENSESSION]\nResult=ERR\n")).certain);
    }
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

DriverBatch BatchOf(std::initializer_list<const wchar_t*> infs)
{
    DriverBatch batch;
    for (const wchar_t* inf : infs)
        batch.Add(inf);
    return batch;
}

// Of each package: added, failed, or unknown.
std::string StatesOf(Form form, const DriverBatch& batch, const std::string& file)
{
    std::string states;
    for (const PackageOutcome& package : detail::PackagesOf(form, batch, Of(file)))
        states += package.added ? 'a' : package.certain ? 'f' : '?';
    return states;
}

TEST(DriverBatches, APackageIsFoundByItsPath)
{
    const DriverBatch batch = BatchOf({L"C:\\Good.inf", L"C:\\bad.inf", L"C:\\a=b.inf"});
    const std::string file = "[DISM_ADDDRIVER]\nC:\\Good.inf=OK\nC:\\BAD.INF=OK\nC:\\a=b.inf=OK\n"
                             "[DISM_ADDDRIVER_ERRORS]\nC:\\BAD.INF=87\nC:\\a=b.inf=5\n";
    const auto packages = detail::PackagesOf(Form::Narrow, batch, Of(file));
    ASSERT_EQ(packages.size(), 3u);
    EXPECT_TRUE(packages[0].added);
    EXPECT_FALSE(packages[1].added);
    EXPECT_EQ(packages[1].lastError, 87);
    EXPECT_FALSE(packages[2].added);
    EXPECT_EQ(packages[2].lastError, 5);
}

TEST(DriverBatches, APackageWithoutAKeyOfItsOwnIsUnknown)
{
    const DriverBatch batch = BatchOf({L"C:\\one.inf", L"C:\\two.inf"});
    for (const Form form : {Form::Narrow, Form::Wide}) {
        EXPECT_EQ(StatesOf(form, batch, ""), "??");
        EXPECT_EQ(StatesOf(form, batch, "[DISM_ADDDRIVER]\nC:\\one.inf=OK\n"), "a?");
        EXPECT_EQ(StatesOf(form, batch, "[DISM_ADDDRIVER]\nC:\\one.inf=ERR\nC:\\two.inf=OK\n"),
                  "?a");
    }
}

TEST(DriverBatches, AFailureThatBelongsToNobodyMakesAllUnknown)
{
    EXPECT_EQ(
        StatesOf(Form::Wide, BatchOf({L"C:\\one.inf", L"C:\\two.inf"}),
                 "[Log]\nRighe=3\n2 - x=DismAddDriver Failed. Following error code.\n3 - x=-1\n"
                 "[DISM_ADDDRIVER]\nC:\\one.inf=OK\nC:\\two.inf=OK\n"),
        "??");
}

// In the wide form a key of at most seven characters arrives as its value.
TEST(DriverBatches, ShortKeysOfTheWideForm)
{
    const DriverBatch one = BatchOf({L"C:\\a.in", L"C:\\long.inf"});
    const std::string both = "[DISM_ADDDRIVER]\nOK=OK\nC:\\long.inf=OK\n";
    EXPECT_EQ(StatesOf(Form::Wide, one, both), "aa");
    EXPECT_EQ(StatesOf(Form::Wide, one, both + "[DISM_ADDDRIVER_ERRORS]\n2=2\n"), "fa");
    EXPECT_EQ(StatesOf(Form::Wide, one, both + "[DISM_ADDDRIVER_ERRORS]\nC:\\long.inf=2\n"), "af");
    EXPECT_EQ(StatesOf(Form::Wide, one, "[DISM_ADDDRIVER]\nC:\\long.inf=OK\n"), "?a");
    // In the narrow form it arrives as given.
    EXPECT_EQ(StatesOf(Form::Narrow, one, both), "?a");
    // Whose it is of several, nobody knows.
    EXPECT_EQ(
        StatesOf(Form::Wide, BatchOf({L"C:\\a.in", L"C:\\b.in"}), "[DISM_ADDDRIVER]\nOK=OK\n"),
        "??");
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
