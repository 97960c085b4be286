// exception_contract_test.cpp - AddDriverList and GetDrivers when a name cannot be copied or
// converted: the COM error that leaves them, and that nothing happens after it.
#include "contract/session_case.h"

#include <algorithm>
#include <comdef.h>
#include <optional>

namespace kestro::test {
namespace {

const DriverList drivers{{L"C:\\d\\a.inf", L"b.inf", L"C:\\d\\c.inf", L"C:\\d\\d.inf",
                          L"C:\\d\\e.inf", L"C:\\d\\f.inf", L"C:\\d\\g.inf", L"C:\\d\\h.inf"},
                         {S_OK, file_not_found}};

const std::vector<Package> packages{{L"oem0.inf", L"a.inf"}, {L"oem1.inf", L"b.inf"}};

// The two exports that copy names.
struct Subject {
    const char* name;
    void (*run)(Platform&, Form);
    Expectation (*expect)(Form, const Script&);
    int copies;
};

const Subject subjects[] = {
    {"AddDriverList", [](Platform& platform, Form form) { RunList(platform, form, {}, drivers); },
     [](Form form, const Script& script) { return ExpectList(form, {}, drivers, script); }, 8},
    {"GetDrivers", [](Platform& platform, Form form) { RunListing(platform, form, {}, packages); },
     [](Form form, const Script& script) { return ExpectListing(form, {}, packages, script); }, 4},
};

// The HRESULT of the COM error that left the export, or nothing.
std::optional<HRESULT> ThrownBy(const Subject& subject, Platform& platform, Form form)
{
    try {
        subject.run(platform, form);
    } catch (const _com_error& error) {
        return error.Error();
    } catch (const std::exception& error) {
        ADD_FAILURE() << subject.name << ' ' << NameOf(form) << ": " << error.what()
                      << " left the call after " << platform.Recorded().back();
    }
    return std::nullopt;
}

// The expected events up to the n-th one that begins so, which fails.
ExpectedEvents UpToFailing(const ExpectedEvents& events, const std::string& start, int n)
{
    ExpectedEvents cut;
    for (const ExpectedEvent& event : events) {
        const bool counts = event.Text().starts_with(start);
        if (counts && --n == 0) {
            cut.emplace_back(event.Text() + " fails");
            return cut;
        }
        cut.push_back(event);
    }
    ADD_FAILURE() << "no such event";
    return cut;
}

// Leaving a call may still release the copies of the names, and ask for the last error twice.
Events WithoutReleasesAtTheEnd(Events events)
{
    while (!events.empty() && events.back().starts_with("SysFreeString"))
        events.pop_back();
    while (events.size() > 1 && events.back() == "GetLastError" &&
           events[events.size() - 2] == "GetLastError")
        events.pop_back();
    return events;
}

TEST(NameCopy, WithoutMemoryEndsTheCall)
{
    for (const Subject& subject : subjects)
        for (const Form form : forms)
            for (int failing = 1; failing <= subject.copies; ++failing) {
                Platform platform;
                platform.failing_string_copy = failing;
                EXPECT_EQ(ThrownBy(subject, platform, form), E_OUTOFMEMORY);
                EXPECT_EQ(platform.live_copies, 0);
                ASSERT_TRUE(SameTranscript(
                    UpToFailing(subject.expect(form, {}).Events(), "SysAllocString", failing),
                    WithoutReleasesAtTheEnd(platform.Recorded())))
                    << subject.name << ' ' << NameOf(form) << ' ' << failing;
            }
}

void ExpectFailingConversion(const Subject& subject, Form form, int failing, DWORD error)
{
    Script script;
    script.last_error = [error](size_t) { return error; };
    Platform platform(script);
    platform.failing_narrowing = failing;
    EXPECT_EQ(ThrownBy(subject, platform, form), HRESULT_FROM_WIN32(error));
    EXPECT_EQ(platform.live_copies, 0);
    ExpectedEvents expected =
        UpToFailing(subject.expect(form, script).Events(), "WideCharToMultiByte", failing);
    expected.emplace_back("GetLastError");
    EXPECT_TRUE(SameTranscript(expected, WithoutReleasesAtTheEnd(platform.Recorded())))
        << subject.name << ' ' << NameOf(form) << ' ' << failing;
}

TEST(NameConversion, FailureEndsTheCallWithTheLastError)
{
    // A last error that is an HRESULT already leaves as it is.
    for (const DWORD error : {DWORD{ERROR_NO_UNICODE_TRANSLATION}, DWORD{0x80004005}})
        for (const Subject& subject : subjects)
            for (const Form form : forms)
                for (int failing = 1; failing <= 2 * subject.copies; ++failing)
                    ExpectFailingConversion(subject, form, failing, error);
}

// What a host can rely on whatever happens to the report.
Events WorkOf(const Platform& platform)
{
    return platform.RecordedWithout({"write", "_", "MultiByte", "WideChar", "Sys", "GetLastError"});
}

TEST(Memory, ThatRunsOutCostsWritesOrEndsTheCall)
{
    int thrown = 0, finished = 0;
    for (const Subject& subject : subjects)
        for (const Form form : forms) {
            Platform normal;
            ASSERT_EQ(ThrownBy(subject, normal, form), std::nullopt);
            const Events work = WorkOf(normal);
            for (int failing = 1; failing <= normal.allocations; ++failing) {
                Platform platform;
                platform.failing_allocation = failing;
                const std::optional<HRESULT> error = ThrownBy(subject, platform, form);
                const Events done = WorkOf(platform);
                EXPECT_EQ(platform.live_copies, 0);
                if (error) {
                    ++thrown;
                    EXPECT_EQ(*error, E_OUTOFMEMORY);
                    ASSERT_LT(done.size(), work.size());
                    ASSERT_TRUE(std::equal(done.begin(), done.end(), work.begin()));
                } else {
                    ++finished;
                    ASSERT_EQ(done, work) << subject.name << ' ' << NameOf(form) << ' ' << failing;
                }
            }
        }
    EXPECT_GT(thrown, 0);
    EXPECT_GT(finished, 0);
}

} // namespace
} // namespace kestro::test
