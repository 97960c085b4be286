// memory_test.cpp - many calls of every export in one process: what each leaves behind is what its
// contract says, and the process holds no more at the end than it did at the beginning.
#include "real_files/result_folder.h"
#include "soak/process_state.h"
#include "soak/soak_calls.h"
#include "soak/soak_length.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace kestro::test {
namespace {

// What calls of one export left.
struct Account {
    long calls = 0;
    std::vector<Leftovers> seen; // each kind once

    void Add(const Leftovers& left)
    {
        ++calls;
        if (std::find(seen.begin(), seen.end(), left) == seen.end())
            seen.push_back(left);
    }
};

class MemorySoak : public testing::Test {
  protected:
    void SetUp() override { WriteBytes(file_, std::string(4096, 'x')); }

    // One call of every export, with and without a failing platform call. One round in ten writes
    // files.
    void Round(QuietPlatform& platform, int round)
    {
        platform.WriteFiles(round % 10 == 0);
        const auto result = folder_.Path(L"result-" + std::to_wstring(round) + L".ini");
        const ResultPath path(result);
        int number = 0;
        for (const SoakCall& call : SoakCalls()) {
            const int fails_at = (round + number++) % failing_calls;
            QuietCall quiet(fails_at, 0);
            const std::wstring file = file_.wstring();
            const unsigned returned = call.run({path, file.c_str(), 0});
            ++calls_;
            const Leftovers left = quiet.Left();
            if (quiet.Failed()) {
                failures_[call.name].Add(left);
                EXPECT_EQ(left.library_blocks, 0) << call.name << ", failing call " << fails_at;
                EXPECT_EQ(left.copies, 0) << call.name << ", failing call " << fails_at;
            } else {
                successes_[call.name].Add(left);
                EXPECT_EQ(returned, call.success) << call.name;
                EXPECT_EQ(left, call.leaves) << call.name << " left " << ToText(left);
            }
        }
        std::filesystem::remove(result);
    }

    // The writers keep the latest files in memory: the same ones whenever this is called.
    ProcessState Measure()
    {
        for (int i = 0; i < 16; ++i) {
            const auto file = folder_.Path(L"latest-" + std::to_wstring(i) + L".ini");
            WritePrivateProfileStringW(L"Section", L"Key", L"Value", file.c_str());
        }
        return MeasureProcess();
    }

    void Print() const
    {
        std::printf("%-18s %8s  each leaves\n", "export", "calls");
        for (const SoakCall& call : SoakCalls()) {
            const auto found = successes_.find(call.name);
            if (found == successes_.end())
                continue;
            for (const Leftovers& left : found->second.seen)
                std::printf("%-18s %8ld  %s\n", call.name.c_str(), found->second.calls,
                            ToText(left).c_str());
        }
        for (const auto& [name, account] : failures_)
            std::printf("%-18s %8ld  calls in which the platform failed, %zu kinds of leftovers\n",
                        name.c_str(), account.calls, account.seen.size());
    }

    static constexpr int failing_calls = 23; // beyond the platform calls of any export: no failure
    ResultFolder folder_;
    std::filesystem::path file_ = folder_.Path(L"disk.img");
    std::map<std::string, Account> successes_;
    std::map<std::string, Account> failures_;
    long calls_ = 0;
};

testing::AssertionResult Flat(const char* what, size_t before, size_t after, size_t room)
{
    std::printf("%-14s %12zu -> %12zu\n", what, before, after);
    if (after <= before + room)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << what << " grew from " << before << " to " << after;
}

TEST_F(MemorySoak, CallsLeaveWhatTheContractSaysAndNothingElse)
{
    const SoakLength length = SoakLength::FromEnvironment();
    const long per_round = static_cast<long>(SoakCalls().size());
    const long rounds = (length.calls + per_round - 1) / per_round;
    QuietPlatform platform;

    // The system's caches and this program's own lists fill first.
    const long warm_up = std::max(rounds / 10, 2L * failing_calls);
    ProcessState before;
    for (long round = 0; round < warm_up + rounds; ++round) {
        if (round == warm_up)
            before = Measure();
        Round(platform, static_cast<int>(round));
        length.ShowProgress(round, warm_up + rounds);
        if (HasFailure())
            break;
    }
    const ProcessState after = Measure();
    Print();
    std::printf("%ld calls\n", calls_);
    EXPECT_TRUE(Flat("handles", before.handles, after.handles, 0));
    // The accounts above keep a few records of their own.
    EXPECT_TRUE(Flat("heap blocks", before.heap_blocks, after.heap_blocks, 16));
    EXPECT_TRUE(Flat("heap bytes", before.heap_bytes, after.heap_bytes, 16 * 1024));
    EXPECT_TRUE(Flat("private bytes", before.private_bytes, after.private_bytes, 512 * 1024));
}

} // namespace
} // namespace kestro::test
