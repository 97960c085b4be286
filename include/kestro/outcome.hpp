// outcome.hpp - what became of a call: the return senses of the narrow and the W form and the layouts of their
// ResultFiles are resolved. Nothing counts as a success without evidence.
#ifndef KESTRO_OUTCOME_HPP
#define KESTRO_OUTCOME_HPP

#include "report.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kestro {

enum class Form { Narrow, Wide };

struct Outcome {
    bool succeeded = false;
    // False when neither the return value nor the ResultFile tells: what did not succeed then may have
    // succeeded all the same.
    bool certain = true;
    std::int32_t returned = 0; // the export's own value
    // Of a failed call: the function that failed first and its HRESULT; nothing when nobody tells. The
    // step is its section in the ResultFile, empty without one.
    std::optional<Failure> failure;
    std::string step;
    std::optional<std::int32_t> lastError; // the step's ErrorCode
    bool reported = false;                 // this call's ResultFile could be read
    Report report;
    std::chrono::milliseconds elapsed{};
};

namespace detail {

// The ResultFile's section of a servicing function.
inline std::string SectionOf(std::string_view function)
{
    for (const auto& [name, section] :
         {std::pair<std::string_view, const char*>{"DismMountImage", "DISM_MOUNT"},
          {"DismUnmountImage", "DISM_UNMOUNT"}})
        if (function == name)
            return section;
    std::string section =
        "DISM_" + std::string(function.substr(
                      (std::min<std::size_t>)(function.size(), std::string_view("Dism").size())));
    for (char& c : section)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    return section;
}

inline void SetFailure(Outcome& outcome, const Failure& failure)
{
    outcome.failure = failure;
    if (const Step* const step = outcome.report.Find(SectionOf(failure.function))) {
        outcome.step = step->name;
        outcome.lastError = step->error;
    }
}

inline bool AnyStepFailed(const Report& report)
{
    return std::any_of(report.steps.begin(), report.steps.end(),
                       [](const Step& step) { return step.succeeded == false; });
}

// The packages of a list fail without failing the call, and have no Result of their own.
inline void SetFirstFailure(Outcome& outcome)
{
    const Step* const add = outcome.report.Find("DISM_ADDDRIVER");
    const bool single = add != nullptr && add->succeeded == false;
    const auto& failures = outcome.report.failures;
    const auto first = std::find_if(failures.begin(), failures.end(), [&](const Failure& failure) {
        return single || failure.function != "DismAddDriver";
    });
    if (first != failures.end())
        SetFailure(outcome, Failure(*first));
}

} // namespace detail

// Resolves the return senses of the image and driver functions, except for the details. The last step is the
// section that a call writes when nothing is left to fail.
inline Outcome OutcomeOf(Form form, std::uint8_t returned, std::optional<Report> report,
                         std::string_view lastStep = "DISM_SHUTDOWN")
{
    Outcome outcome;
    outcome.returned = returned;
    outcome.reported = report.has_value();
    if (report)
        outcome.report = std::move(*report);
    const bool stepFailed = detail::AnyStepFailed(outcome.report);
    if (form == Form::Wide) {
        outcome.succeeded = returned == 1;
    } else if (returned == 0) {
        outcome.succeeded = true;
    } else {
        // A narrow 1 also says that everything succeeded and the closing shutdown returned a success code
        // other than S_OK. Only the file tells the two apart.
        const Step* const last = outcome.report.Find(lastStep);
        outcome.succeeded = last != nullptr && last->succeeded == true && !stepFailed;
        outcome.certain = outcome.succeeded || stepFailed;
    }
    if (!outcome.succeeded)
        detail::SetFirstFailure(outcome);
    return outcome;
}

// GetDriverInfo has a table of its own: a narrow 0 and a W 1 are successes. A W 0 is plain success as well as
// failure, and a failed query is in no ResultFile; both leave only the failures of other steps certain.
inline Outcome DetailsOutcomeOf(Form form, std::uint8_t returned, std::optional<Report> report)
{
    Outcome outcome;
    outcome.returned = returned;
    outcome.reported = report.has_value();
    if (report)
        outcome.report = std::move(*report);
    outcome.succeeded = form == Form::Narrow ? returned == 0 : returned == 1;
    outcome.certain = outcome.succeeded || detail::AnyStepFailed(outcome.report);
    if (!outcome.succeeded)
        detail::SetFirstFailure(outcome);
    return outcome;
}

} // namespace kestro

#endif
