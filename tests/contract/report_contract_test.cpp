// report_contract_test.cpp - the ResultFile's texts, seen through calls that report: numbers, line
// keys, stamps, the last error, and what is lost when the system cannot convert or has no memory.
#include "contract/mount_case.h"

#include <algorithm>

namespace kestro::test {
namespace {

MountCase FailedMount()
{
    MountCase run;
    run.operation = file_not_found;
    run.shutdown[0] = not_initialized;
    return run;
}

Script At(const std::tm& time)
{
    Script script;
    script.clock = [time](int) { return time; };
    return script;
}

Events Only(const Events& events, std::initializer_list<const char*> prefixes)
{
    Events kept;
    for (const std::string& event : events)
        if (std::any_of(prefixes.begin(), prefixes.end(),
                        [&](const char* prefix) { return event.starts_with(prefix); }))
            kept.push_back(event);
    return kept;
}

// What a host can rely on whatever happens to the report.
Events WorkOf(const Platform& platform)
{
    return Only(platform.Recorded(), {"Dism", "console", "returns"});
}

Events WritesOf(const Platform& platform)
{
    return Only(platform.Recorded(), {"write"});
}

ExpectedEvents AsExpected(const Events& events)
{
    return ExpectedEvents(events.begin(), events.end());
}

// --- clock ---

TEST(Clock, OddTimesOfTheDayAndYear)
{
    const std::tm times[] = {
        LocalTime(2021, 1, 7, 9, 5, 3),        LocalTime(1999, 12, 31, 23, 59, 59),
        LocalTime(2016, 12, 31, 23, 59, 60),   LocalTime(2024, 2, 29, 0, 0, 0),
        LocalTime(9999, 10, 10, 10, 10, 10),   LocalTime(10000, 1, 1, 0, 0, 0),
        LocalTime(123456, 11, 11, 11, 11, 11), LocalTime(987, 6, 5, 4, 3, 2),
        LocalTime(2021, -1, -10, -9, -99, -5),
    };
    for (const Form form : forms)
        for (const std::tm& time : times) {
            EXPECT_TRUE(MountDoesWhatItHasTo(form, FailedMount(), At(time)));
            EXPECT_TRUE(UnmountDoesWhatItHasTo(form, {}, At(time)));
        }
}

TEST(Clock, TextsOfOneMorningAndOfAFarYear)
{
    for (const auto& [time, key, stamp] :
         {std::tuple{LocalTime(2021, 1, 7, 9, 5, 3), "2 - 07-01-2021 09:05:03", "20210107090503"},
          std::tuple{LocalTime(10000, 1, 1, 0, 0, 0), "2 - 01-01-10000 00:00:00",
                     "100000101000000"}}) {
        Platform platform(At(time));
        RunUnmount(platform, Form::narrow, {});
        EXPECT_THAT(platform.Recorded(),
                    testing::Contains(Format(
                        R"(write A ["Log"] "%s" = "Unmounting image..." in ResultFile)", key)));
        EXPECT_THAT(platform.Recorded(),
                    testing::Contains(
                        Format(R"(write A ["Status"] "LastWrite" = "%s" in ResultFile)", stamp)));
    }
}

TEST(Clock, YearTurnsBetweenALineAndItsStamp)
{
    // Only the second reading of each pair belongs to the new year.
    Script script;
    script.clock = [](int reading) {
        return reading % 2 == 0 ? LocalTime(2021, 12, 31, 23, 59, 59)
                                : LocalTime(2022, 1, 1, 0, 0, 0);
    };
    for (const Form form : forms) {
        EXPECT_TRUE(MountDoesWhatItHasTo(form, FailedMount(), script));
        EXPECT_TRUE(UnmountDoesWhatItHasTo(form, {}, script));
    }
}

TEST(Clock, TimeWithoutLocalTimeLosesNoWork)
{
    Script script;
    script.clock = [](int) { return std::optional<std::tm>(); };
    for (const Form form : forms) {
        Platform normal;
        RunMount(normal, form, FailedMount());
        const Events work = WorkOf(normal);
        const size_t writes = WritesOf(normal).size();

        Platform platform(script);
        RunMount(platform, form, FailedMount());
        EXPECT_TRUE(SameTranscript(AsExpected(work), WorkOf(platform)));
        EXPECT_EQ(WritesOf(platform).size(), writes);
    }
}

// --- log lines ---

TEST(LogLines, NumbersStartAtTwoInEveryCall)
{
    for (const Form form : forms)
        for (int call = 0; call < 3; ++call) {
            Platform platform;
            RunUnmount(platform, form, {});
            Events righe;
            for (const std::string& event : WritesOf(platform))
                if (event.find("Righe") != std::string::npos)
                    righe.push_back(event.substr(8));
            EXPECT_EQ(righe, (Events{R"(["Log"] "Righe" = "2" in ResultFile)",
                                     R"(["Log"] "Righe" = "3" in ResultFile)"}));
        }
}

TEST(LogLines, WideLineStampsNothingInTheResultFile)
{
    Platform platform;
    RunMount(platform, Form::wide, FailedMount());
    for (const std::string& event : WritesOf(platform))
        EXPECT_EQ(event.starts_with("write A"), event.ends_with("in NULL")) << event;
}

// --- last error ---

TEST(LastError, IsWrittenSigned)
{
    for (const DWORD error :
         {0ul, 1ul, 5ul, 0x7FFFFFFFul, 0x80000000ul, 0x80070005ul, 0xFFFFFFFFul}) {
        Script script;
        script.last_error = [error](size_t) { return error; };
        for (const Form form : forms) {
            EXPECT_TRUE(MountDoesWhatItHasTo(form, FailedMount(), script));
            EXPECT_TRUE(UnmountDoesWhatItHasTo(form, FailedMount(), script));
        }
    }
}

TEST(LastError, ZeroWhenNothingSetIt)
{
    Script script;
    script.last_error = [](size_t) { return 0ul; };
    Platform platform(script);
    MountCase run;
    run.operation = static_cast<HRESULT>(0x800F081F);
    RunMount(platform, Form::narrow, run);
    EXPECT_THAT(platform.Recorded(),
                testing::Contains(testing::HasSubstr(R"(= "-2146498529" in ResultFile)")));
    EXPECT_THAT(platform.Recorded(),
                testing::Contains(R"(write A ["DISM_MOUNT"] "ErrorCode" = "0" in ResultFile)"));
}

// --- a report that cannot be made ---

// The first events may be missing from the second, but nothing else may be there.
bool IsPartOf(const Events& part, const Events& whole)
{
    size_t found = 0;
    for (const std::string& event : whole)
        if (found < part.size() && part[found] == event)
            ++found;
    return found == part.size();
}

// Texts whose last error differs would differ too.
Script QuietScript()
{
    Script script;
    script.last_error = [](size_t) { return 5ul; };
    script.clock = [](int) { return LocalTime(2021, 3, 5, 14, 7, 9); };
    return script;
}

TEST(FailedConversion, DropsThatWriteAndNothingElse)
{
    Platform normal(QuietScript());
    RunMount(normal, Form::wide, FailedMount());
    const Events work = WorkOf(normal), writes = WritesOf(normal);

    for (int failing = 1; failing <= normal.conversions; ++failing) {
        Platform platform(QuietScript());
        platform.failing_conversion = failing;
        RunMount(platform, Form::wide, FailedMount());
        ASSERT_TRUE(SameTranscript(AsExpected(work), WorkOf(platform))) << failing;
        ASSERT_EQ(WritesOf(platform).size(), writes.size() - 1) << failing;
        ASSERT_TRUE(IsPartOf(WritesOf(platform), writes)) << failing;
    }
    EXPECT_GT(normal.conversions, 50);
}

TEST(NoMemory, CostsWritesButNoWork)
{
    int swept = 0;
    for (const Form form : forms) {
        Platform normal(QuietScript());
        RunMount(normal, form, FailedMount());
        const Events work = WorkOf(normal), writes = WritesOf(normal);

        for (int failing = 1; failing <= normal.allocations; ++failing, ++swept) {
            Platform platform(QuietScript());
            platform.failing_allocation = failing;
            RunMount(platform, form, FailedMount());
            ASSERT_TRUE(SameTranscript(AsExpected(work), WorkOf(platform)))
                << NameOf(form) << ' ' << failing;
            ASSERT_TRUE(IsPartOf(WritesOf(platform), writes)) << NameOf(form) << ' ' << failing;
            ASSERT_GE(WritesOf(platform).size() + 1, writes.size())
                << NameOf(form) << ' ' << failing;
        }
    }
    EXPECT_GT(swept, 20);
}

// --- write test ---

constexpr char test_line[] = "This is a test created by Kestro.dll";

void RunWriteTest(Form form, const ResultFile& file)
{
    if (form == Form::narrow)
        KestroLibrary::Get().Find<void(__stdcall*)(const char*)>("WriteTest")(file.narrow);
    else
        KestroLibrary::Get().Find<void(__stdcall*)(const wchar_t*)>("WriteTestW")(file.wide);
}

TEST(WriteTest, EveryWriteInOrder)
{
    const ResultFile path{"C:\\out\\result.ini", L"C:\\out\\result.ini"};
    for (const Form form : forms)
        for (const ResultFile& file : {path, ResultFile{nullptr, nullptr}}) {
            const std::string shown = Shown(file.narrow, "ResultFile");
            Expectation call(form, {}, shown);
            for (const auto& [section, key, value] :
                 {std::tuple{"KESTRO_TEST", "TEST", "TEST"}, {"STATUS", "Status", "C"}}) {
                call.WriteRaw(form, section, key, value, shown);
                form == Form::wide ? call.WideStamp() : call.Stamp();
            }
            form == Form::wide ? call.LogLiteral(test_line) : call.Log(test_line);

            Platform platform;
            platform.Name(file.narrow, "ResultFile");
            platform.Name(file.wide, "ResultFile");
            RunWriteTest(form, file);
            EXPECT_TRUE(SameTranscript(call.Events(), platform.Recorded())) << NameOf(form);
        }
}

} // namespace
} // namespace kestro::test
