// session_contract_test.cpp - AddDriver, RemoveDriver, AddDriverList, GetDrivers and GetDriverInfo,
// narrow and wide: every path, every call, every write.
#include "contract/session_case.h"

namespace kestro::test {
namespace {

constexpr HRESULT no_signature = static_cast<HRESULT>(0x800F0247);
constexpr HRESULT invalid_session = static_cast<HRESULT>(0xC0040004);

constexpr DriverChange changes[] = {DriverChange::add, DriverChange::remove};

// Calls test with every combination of good, positive and failing answers that can make a
// difference, until one fails.
template <typename Test>
void ForAllAnswers(std::initializer_list<HRESULT> operations,
                   std::initializer_list<HRESULT> commits, Test test)
{
    const auto close_and_shut_down = [&](SessionCase run) {
        for (const HRESULT close : {S_OK, S_FALSE, invalid_session})
            for (const HRESULT second_close : {S_OK, S_FALSE, invalid_session})
                for (const HRESULT shutdown : {S_OK, S_FALSE, restart_required, not_initialized})
                    for (const HRESULT second : {S_OK, S_FALSE, open_handles}) {
                        run.close[0] = close;
                        run.close[1] = second_close;
                        run.shutdown[0] = shutdown;
                        run.shutdown[1] = second;
                        test(run);
                        if (testing::Test::HasFatalFailure())
                            return;
                    }
    };
    for (const HRESULT initialize : {S_OK, S_FALSE, not_initialized}) {
        SessionCase run;
        run.initialize = initialize;
        if (initialize < 0) {
            close_and_shut_down(run);
            continue;
        }
        for (const HRESULT open : {S_OK, restart_required, file_not_found}) {
            run.open = open;
            if (open < 0) {
                close_and_shut_down(run);
                continue;
            }
            for (const HRESULT operation : operations)
                for (const HRESULT commit : commits) {
                    run.operation = operation;
                    run.commit = commit;
                    close_and_shut_down(run);
                    if (testing::Test::HasFatalFailure())
                        return;
                }
            run.operation = run.commit = S_OK;
        }
    }
}

SessionCase WithoutArguments()
{
    SessionCase run;
    run.image = run.log_file = nullptr;
    run.result_file = {nullptr, nullptr};
    return run;
}

// --- AddDriver, RemoveDriver ---

TEST(DriverChange, SuccessWrittenOut)
{
    for (const auto& [change, section, call] :
         {std::tuple{DriverChange::add, "DISM_ADDDRIVER", "DismAddDriver(7, DriverPath, 0)"},
          {DriverChange::remove, "DISM_REMOVEDRIVER", "DismRemoveDriver(7, DriverPath)"}}) {
        Platform platform;
        RunDriverChange(platform, Form::narrow, change, {}, driver_path);
        const ExpectedEvents expected{
            "DismInitialize(2, LogFilePath, NULL) -> 00000000",
            R"(write A ["DISM_INITIALIZE"] "Result" = "OK" in ResultFile)",
            R"(write A ["Status"] "LastWrite" = "20210305140000" in ResultFile)",
            "DismOpenSession(ImagePath, NULL, NULL, slot of 0) -> 00000000",
            std::string(call) + " -> 00000000",
            Format(R"(write A ["%s"] "Result" = "OK" in ResultFile)", section),
            R"(write A ["Status"] "LastWrite" = "20210305140001" in ResultFile)",
            "DismCommitImage(7, 0x0, NULL, NULL, NULL) -> 00000000",
            "DismCloseSession(7) -> 00000000",
            "DismShutdown() -> 00000000",
            R"(write A ["DISM_SHUTDOWN"] "Result" = "OK" in ResultFile)",
            R"(write A ["Status"] "LastWrite" = "20210305140002" in ResultFile)",
            "returns 0",
        };
        EXPECT_TRUE(SameTranscript(expected, platform.RecordedWithout({"_"})));
    }
}

TEST(DriverChange, EveryCombinationOfAnswers)
{
    for (const Form form : forms)
        for (const DriverChange change : changes)
            ForAllAnswers({S_OK, restart_required, no_signature}, {S_OK, S_FALSE, file_not_found},
                          [&](const SessionCase& run) {
                              ASSERT_TRUE(ChangeDoesWhatItHasTo(form, change, run));
                          });
}

TEST(DriverChange, NullArgumentsArePassedOn)
{
    for (const Form form : forms)
        for (const DriverChange change : changes)
            EXPECT_TRUE(ChangeDoesWhatItHasTo(form, change, WithoutArguments(), nullptr));
}

// --- AddDriverList ---

const DriverList eight_drivers{{L"C:\\d\\a.inf", L"C:\\d\\b.inf", L"C:\\d\\c.inf", L"C:\\d\\d.inf",
                                L"C:\\d\\e.inf", L"C:\\d\\f.inf", L"C:\\d\\g.inf",
                                L"C:\\d\\h.inf"}};

HRESULT FailureOf(size_t index)
{
    return static_cast<HRESULT>(0x800F0240 + index);
}

TEST(DriverList, EveryPatternOfFailingPackages)
{
    for (const Form form : forms)
        for (unsigned pattern = 0; pattern < 256; ++pattern) {
            DriverList list = eight_drivers;
            for (size_t i = 0; i < 8; ++i)
                list.results[i] = pattern >> i & 1 ? FailureOf(i) : S_OK;
            ASSERT_TRUE(ListDoesWhatItHasTo(form, {}, list)) << "pattern " << pattern;
        }
}

TEST(DriverList, EveryCombinationOfSessionAnswers)
{
    DriverList list = eight_drivers;
    list.results[2] = no_signature;
    list.results[7] = smallest;
    for (const Form form : forms)
        ForAllAnswers({S_OK}, {S_OK, S_FALSE, file_not_found}, [&](const SessionCase& run) {
            ASSERT_TRUE(ListDoesWhatItHasTo(form, run, list));
        });
}

TEST(DriverList, PositiveResultsAreSuccesses)
{
    DriverList list = eight_drivers;
    list.results = {S_FALSE, restart_required, 2, 0x7FFFFFFF, S_FALSE, 1000, 5, 87};
    for (const Form form : forms)
        EXPECT_TRUE(ListDoesWhatItHasTo(form, {}, list));
}

TEST(DriverList, SamePackageTwice)
{
    const std::wstring again = eight_drivers.paths[0];
    DriverList list = eight_drivers;
    list.paths[1] = again.c_str();
    list.paths[6] = list.paths[5];
    for (const Form form : forms)
        for (unsigned pattern = 0; pattern < 4; ++pattern) {
            list.results[0] = list.results[5] = pattern & 1 ? no_signature : S_OK;
            list.results[1] = list.results[6] = pattern & 2 ? file_not_found : S_OK;
            EXPECT_TRUE(ListDoesWhatItHasTo(form, {}, list));
        }
}

TEST(DriverList, NarrowNullEntryWritesWithoutAKey)
{
    for (size_t index = 0; index < 8; ++index)
        for (const HRESULT result : {S_OK, file_not_found}) {
            DriverList list = eight_drivers;
            list.paths[index] = nullptr;
            list.results[index] = result;
            EXPECT_TRUE(ListDoesWhatItHasTo(Form::narrow, {}, list));
        }
    DriverList nothing{};
    nothing.results.fill(file_not_found);
    EXPECT_TRUE(ListDoesWhatItHasTo(Form::narrow, {}, nothing));
}

// No host may pass one. Its report is lost, and no work is.
TEST(DriverList, WideNullEntryCostsItsReportAlone)
{
    for (const HRESULT result : {S_OK, file_not_found}) {
        DriverList list = eight_drivers;
        list.paths[3] = nullptr;
        list.results[3] = result;
        Platform platform;
        RunList(platform, Form::wide, {}, list);
        for (const char* event : {"DismAddDriver(7, DriverPaths[7], 0) -> 00000000",
                                  "DismCommitImage(7, 0x0, NULL, NULL, NULL) -> 00000000",
                                  "DismShutdown() -> 00000000", "returns 1"})
            EXPECT_THAT(platform.Recorded(), testing::Contains(event));
        EXPECT_EQ(platform.live_copies, 0);
    }
}

TEST(DriverList, ShortAndLongKeys)
{
    const DriverList list{
        {L"", L"?", L"a.inf", L"ab.info", L"abc.info", L"OK", L"ERR",
         L"\\\\server\\share\\a very long folder's name with spaces\\driver package\\x.inf"}};
    // Last errors of one digit, of seven and eight characters, and of eleven.
    for (const DWORD error : {5ul, 9999999ul, 10000000ul, 0x80070005ul})
        for (const Form form : forms) {
            Script script;
            script.last_error = [error](size_t) { return error; };
            EXPECT_TRUE(ListDoesWhatItHasTo(form, {}, list, script));
            DriverList failing = list;
            failing.results.fill(no_signature);
            EXPECT_TRUE(ListDoesWhatItHasTo(form, {}, failing, script)) << error;
        }
}

TEST(DriverList, NamesOutsideTheCodePage)
{
    const DriverList list{{L"C:\\tr\u00E9iber\\n\u00E4.inf", L"C:\\\u0434\u0440\u0430\u0439.inf",
                           L"\u00E9\u00E9.inf", L"C:\\\u65E5\u672C\\\u8A9E.inf", L"\u65E5.inf",
                           L"C:\\\U0001F600.inf", L"C:\\x\u0301.inf", L"C:\\plain.inf"}};
    DriverList failing = list;
    failing.results.fill(no_signature);
    for (const Form form : forms) {
        EXPECT_TRUE(ListDoesWhatItHasTo(form, {}, list));
        EXPECT_TRUE(ListDoesWhatItHasTo(form, {}, failing));
    }
}

TEST(DriverList, NullArgumentsArePassedOn)
{
    for (const Form form : forms)
        EXPECT_TRUE(ListDoesWhatItHasTo(form, WithoutArguments(), eight_drivers));
}

// --- GetDrivers ---

std::vector<Package> Packages(unsigned count)
{
    std::vector<Package> packages;
    for (unsigned i = 0; i < count; ++i)
        packages.push_back({L"oem" + std::to_wstring(i * 7) + L".inf",
                            L"C:\\image\\FileRepository\\p" + std::to_wstring(i) + L".inf"});
    return packages;
}

TEST(Listing, EveryCombinationOfAnswers)
{
    for (const Form form : forms)
        for (const unsigned count : {0u, 2u})
            ForAllAnswers({S_OK, S_FALSE, restart_required, file_not_found}, {S_OK},
                          [&](const SessionCase& run) {
                              ASSERT_TRUE(ListingDoesWhatItHasTo(form, run, Packages(count)));
                          });
}

TEST(Listing, AnyNumberOfPackages)
{
    for (const Form form : forms)
        for (const unsigned count : {0u, 1u, 2u, 3u, 40u, 41u, 300u})
            EXPECT_TRUE(ListingDoesWhatItHasTo(form, {}, Packages(count)));
}

TEST(Listing, LineWrittenOut)
{
    Platform platform;
    RunListing(platform, Form::narrow, {}, {{L"oem0.inf", L"a.inf"}, {L"oem1.inf", L"b.inf"}});
    for (
        const char* event :
        {R"(console wide "\n\nThese are the third party drivers from the image:\n\n")",
         R"(console wide "Driver Package 0: oem0.inf\n")",
         R"(console wide "Original file name: b.inf\n\n")",
         R"(write A ["Log"] "3 - 05-03-2021 14:00:03" = )"
         R"("Driver Package 0 - PublishedName: oem0.inf - Original file name: a.inf" in ResultFile)",
         R"(write A ["Log"] "4 - 05-03-2021 14:00:05" = )"
         R"("Driver Package 1 - PublishedName: oem1.inf - Original file name: b.inf" in )"
         R"(ResultFile)"})
        EXPECT_THAT(platform.Recorded(), testing::Contains(event));
}

TEST(Listing, OddNames)
{
    const std::vector<Package> packages{
        {L"", L""},
        {L"tr\u00E9iber.inf", L"C:\\n\u00E4\\\u00FC.inf"},
        {L"\u0434\u0440.inf", L"\u65E5\u672C\u8A9E"},
        {L"100%s%n%x.inf", L"%d %S"},
        {std::wstring(3000, L'p'), std::wstring(3000, L'o')},
    };
    for (const Form form : forms)
        EXPECT_TRUE(ListingDoesWhatItHasTo(form, {}, packages));
}

TEST(Listing, MissingNamesAreEmptyInTheLog)
{
    const char record[100] = {};
    for (const Form form : forms) {
        Platform platform;
        PrepareSession(platform, {});
        platform.packages = record;
        platform.package_count = 1;
        const SessionCase run;
        const unsigned returned =
            KestroLibrary::Get().Call("GetDrivers", form, run.result_file, run.image, run.log_file);
        EXPECT_EQ(returned, SuccessValue(form, S_OK));
        EXPECT_THAT(platform.Recorded(),
                    testing::Contains(testing::HasSubstr(
                        R"( = "Driver Package 0 - PublishedName:  - Original file name: ")")));
    }
}

TEST(Listing, NullArgumentsArePassedOn)
{
    for (const Form form : forms)
        EXPECT_TRUE(ListingDoesWhatItHasTo(form, WithoutArguments(), Packages(1)));
}

// --- GetDriverInfo ---

TEST(Details, EveryCombinationOfAnswers)
{
    for (const Form form : forms)
        ForAllAnswers(
            {S_OK, S_FALSE, restart_required, 0x100, 0x7FFFFFFF, file_not_found, smallest}, {S_OK},
            [&](const SessionCase& run) { ASSERT_TRUE(DetailsDoWhatTheyHaveTo(form, run)); });
}

TEST(Details, SuccessReturnsTheLowByte)
{
    for (const Form form : forms)
        for (const auto& [result, value] : {std::pair{S_OK, 0u},
                                            {S_FALSE, 1u},
                                            {restart_required, 0xC2u},
                                            {HRESULT(0x100), 0u},
                                            {HRESULT(0x7FFFFFFF), 0xFFu}}) {
            SessionCase run;
            run.operation = result;
            Platform platform;
            RunDetails(platform, form, run, driver_path);
            EXPECT_EQ(platform.Recorded().back(), Format("returns %u", value));
        }
}

TEST(Details, UnknownDriverIsReportedOnTheConsoleAlone)
{
    SessionCase run;
    run.operation = file_not_found;
    Platform platform;
    RunDetails(platform, Form::narrow, run, driver_path);
    const ExpectedEvents expected{
        "DismInitialize(2, LogFilePath, NULL) -> 00000000",
        R"(write A ["DISM_INITIALIZE"] "Result" = "OK" in ResultFile)",
        R"(write A ["Status"] "LastWrite" = "20210305140000" in ResultFile)",
        "DismOpenSession(ImagePath, NULL, NULL, slot of 0) -> 00000000",
        "DismGetDriverInfo(7, DriverPath, slot of NULL, slot of 0, slot of NULL) -> 80070002",
        R"(console wide "DismGetDriverInfo Failed: 80070002\n")",
        "DismCloseSession(7) -> 00000000",
        "DismShutdown() -> 00000000",
        R"(console wide "Return code is: 80070002\n")",
        "returns 1",
    };
    EXPECT_TRUE(SameTranscript(expected, platform.RecordedWithout({"_"})));
}

TEST(Details, NullArgumentsArePassedOn)
{
    for (const Form form : forms)
        EXPECT_TRUE(DetailsDoWhatTheyHaveTo(form, WithoutArguments(), nullptr));
}

} // namespace
} // namespace kestro::test
