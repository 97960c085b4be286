// thread_test.cpp - eight threads that call every reporting export at once, each with a ResultFile of its
// own: every file ends up as the same calls one after another leave it.
#include "real_files/result_folder.h"
#include "soak/soak_calls.h"
#include "soak/soak_length.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <thread>

namespace kestro::test {
namespace {

constexpr int thread_count = 8;

// What one thread's calls returned, by call number.
using Returned = std::vector<unsigned>;

std::atomic<long> calls_done;

// The calls of one thread: its names, failures, times and last errors are its own.
Returned MakeCalls(int tag, const SoakLength& length, const std::filesystem::path& file)
{
    constexpr int failing_calls = 17;
    constexpr long calls_of_a_minute = 40;
    const ResultPath path(file);
    std::vector<const SoakCall*> reporting;
    for (const SoakCall& call : SoakCalls())
        if (call.reports)
            reporting.push_back(&call);

    Returned returned;
    for (long i = 0; i < length.calls_of_thread; ++i) {
        const auto number = static_cast<size_t>(i + 3 * tag) % reporting.size();
        SetClockOfThread(static_cast<int>(60 * tag + i / calls_of_a_minute));
        QuietCall quiet(static_cast<int>(i + tag) % failing_calls, tag);
        returned.push_back(reporting[number]->run({path, L"", tag}));
        // Once alone, once together.
        length.ShowProgress(++calls_done, 2 * thread_count * length.calls_of_thread);
    }
    return returned;
}

// Key by key: "[section] key" and its value.
std::map<std::string, std::string> Keys(const std::filesystem::path& file)
{
    std::map<std::string, std::string> keys;
    std::string section;
    for (const std::string& line : ReadLines(file)) {
        const size_t equals = line.find('=');
        if (line.starts_with('[') && line.ends_with(']'))
            section = line;
        else if (equals == std::string::npos)
            ADD_FAILURE() << "no key: " << line;
        else if (!keys.emplace(section + ' ' + line.substr(0, equals), line.substr(equals + 1))
                      .second)
            ADD_FAILURE() << "twice in " << section << ": " << line;
    }
    return keys;
}

// The makers of a thread's packages and its last error carry its number.
void ExpectNothingOfOthers(int tag, const std::map<std::string, std::string>& keys)
{
    const std::string maker = "maker", own = maker + std::to_string(tag) + '\\';
    int makers = 0, codes = 0;
    for (const auto& [key, value] : keys) {
        const std::string line = key + '=' + value;
        const size_t at = line.find(maker);
        if (at != std::string::npos) {
            ++makers;
            EXPECT_EQ(line.substr(at, own.size()), own);
        }
        if (key.ends_with("ErrorCode")) {
            ++codes;
            EXPECT_EQ(value, std::to_string(5000 + tag));
        }
    }
    EXPECT_GT(makers, 0) << "thread " << tag;
    EXPECT_GT(codes, 0) << "thread " << tag;
}

TEST(ThreadSoak, EightThreadsLeaveTheFilesThatOneLeaves)
{
    const SoakLength length = SoakLength::FromEnvironment();
    QuietPlatform platform;
    platform.UseThreadsOwn();
    const ResultFolder folder;
    const auto file_of = [&](const wchar_t* run, int tag) {
        return folder.Path(run + std::to_wstring(tag) + L".ini");
    };

    Returned expected[thread_count], returned[thread_count];
    calls_done = 0;
    for (int tag = 0; tag < thread_count; ++tag)
        expected[tag] = MakeCalls(tag, length, file_of(L"alone-", tag));

    std::vector<std::thread> threads;
    for (int tag = 0; tag < thread_count; ++tag)
        threads.emplace_back(
            [&, tag] { returned[tag] = MakeCalls(tag, length, file_of(L"together-", tag)); });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(calls_done, 2 * thread_count * length.calls_of_thread);

    size_t compared = 0;
    for (int tag = 0; tag < thread_count; ++tag) {
        EXPECT_EQ(returned[tag], expected[tag]) << "thread " << tag;
        const auto alone = Keys(file_of(L"alone-", tag));
        const auto together = Keys(file_of(L"together-", tag));
        EXPECT_EQ(together, alone) << "thread " << tag;
        compared += together.size();
        ExpectNothingOfOthers(tag, together);
    }
    std::printf("%ld calls in each of %d threads, %zu keys compared\n", length.calls_of_thread,
                thread_count, compared);
}

} // namespace
} // namespace kestro::test
