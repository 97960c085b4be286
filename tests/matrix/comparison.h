// comparison.h - one export against its model, under every combination of the platform's answers.
#pragma once

#include "matrix/choices.h"
#include "matrix/model.h"

namespace kestro::test {

struct Subject {
    std::string name;
    std::function<ExpectedEvents(const Situation&)> predict;
    std::function<void(Platform&, const Situation&)> run;
};

// The answers to go through.
struct Variation {
    std::vector<HRESULT> outcomes;
    int most_deviations = Choices::any_number;
};

// Plain success, two other success codes, three failures.
extern const std::vector<HRESULT> all_outcomes;
// One of each where there are too many combinations.
extern const std::vector<HRESULT> few_outcomes;

// The ResultFile that the export is given.
ResultFile FileOf(const Situation& situation);

// Prints the number of combinations under the first subject's name and fails for those that differ,
// the first five of the program with both transcripts.
void Compare(const std::vector<Subject>& subjects, const Variation& variation,
             std::initializer_list<Form> which = {Form::narrow, Form::wide});

} // namespace kestro::test
