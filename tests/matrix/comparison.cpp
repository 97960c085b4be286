// comparison.cpp - runs each combination on the model and on the library.
#include "matrix/comparison.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace kestro::test {

namespace {

constexpr ResultFile result_file{"C:\\result.ini", L"C:\\result.ini"};

// Last errors of every length and sign, dates of every width: another kind for each combination.
Script ScriptOf(int combination)
{
    static constexpr DWORD error_bases[] = {100000, 0xFFFF0000, 0x80000000, 0};
    const DWORD base = error_bases[combination % 4];
    Script script;
    script.last_error = [=](size_t events) { return base + static_cast<DWORD>(events); };
    script.clock = [=](int reading) {
        const int tick = combination + reading;
        return LocalTime(combination % 9 ? 1970 + combination % 200 : 12021, 1 + tick % 12,
                         1 + tick % 31, tick % 24, (7 * tick) % 60, (13 * tick) % 60);
    };
    return script;
}

Situation SituationOf(Form form, int combination)
{
    Situation situation;
    situation.form = form;
    situation.script = ScriptOf(combination);
    situation.has_result_file = combination % 7 != 6;
    situation.session = combination % 2 ? 7 : 0xFFFFFFFF;
    return situation;
}

constexpr int failures_shown = 5;
int failures = 0;

bool Equal(const ExpectedEvents& expected, const Events& actual)
{
    return std::equal(expected.begin(), expected.end(), actual.begin(), actual.end(),
                      [](const auto& left, const auto& right) { return left.Meets(right); });
}

void CompareOne(Platform& platform, const Subject& subject, Form form, Choices& choices,
                int combination)
{
    Situation situation = SituationOf(form, combination);
    situation.answer = [&](const std::string& function) { return choices.Next(function); };
    const ExpectedEvents expected = subject.predict(situation);

    platform.Restart(situation.script);
    platform.session = situation.session;
    platform.Name(result_file.narrow, "ResultFile");
    platform.Name(result_file.wide, "ResultFile");
    choices.Apply(platform);
    subject.run(platform, situation);
    if (failures < failures_shown) {
        const testing::AssertionResult same = SameTranscript(expected, platform.Recorded());
        if (!same) {
            ++failures;
            ADD_FAILURE() << subject.name << ", " << NameOf(form) << " form, combination "
                          << combination << ": " << choices.Describe() << '\n'
                          << same.message();
        }
    } else if (!Equal(expected, platform.Recorded())) {
        ++failures; // without the comparison side by side, which takes long
    }
    if (platform.live_copies != 0)
        ADD_FAILURE() << subject.name << " left " << platform.live_copies << " copies";
}

// KESTRO_MATRIX_DEVIATIONS=1 leaves the combinations in which one answer alone is not the first, for
// runs whose checks make every combination take too long.
int MostDeviations(const Variation& variation)
{
    const char* const limit = std::getenv("KESTRO_MATRIX_DEVIATIONS");
    return limit == nullptr ? variation.most_deviations
                            : std::min(std::atoi(limit), variation.most_deviations);
}

// Numbers the combinations on from the given one.
void CompareAll(const Subject& subject, Form form, const Variation& variation, int& combination)
{
    const int failures_before = failures, first = combination;
    Platform platform;
    Choices choices(variation.outcomes, MostDeviations(variation));
    do
        CompareOne(platform, subject, form, choices, combination++);
    while (choices.Advance());
    if (failures > failures_before)
        ADD_FAILURE() << subject.name << ", " << NameOf(form)
                      << " form: " << failures - failures_before << " of " << combination - first
                      << " combinations differ";
}

int total = 0;

class Total : public testing::Environment {
    void TearDown() override { std::printf("%d combinations in all\n", total); }
};

const testing::Environment* const environment = testing::AddGlobalTestEnvironment(new Total);

} // namespace

const std::vector<HRESULT> all_outcomes{S_OK,   S_FALSE,        3010,
                                        E_FAIL, E_ACCESSDENIED, static_cast<HRESULT>(0xC1420113)};
const std::vector<HRESULT> few_outcomes{S_OK, S_FALSE, E_FAIL};

ResultFile FileOf(const Situation& situation)
{
    return situation.has_result_file ? result_file : ResultFile{};
}

void Compare(const std::vector<Subject>& subjects, const Variation& variation,
             std::initializer_list<Form> which)
{
    for (const Form form : which) {
        int combinations = 0;
        for (const Subject& subject : subjects)
            CompareAll(subject, form, variation, combinations);
        std::printf("%-32s %-6s %6d combinations\n", subjects.front().name.c_str(), NameOf(form),
                    combinations);
        total += combinations;
    }
    std::fflush(stdout);
}

} // namespace kestro::test
