// choices.cpp - the walk through the combinations of answers.
#include "matrix/choices.h"

namespace kestro::test {

HRESULT Choices::Next(const std::string& function)
{
    if (asked_ == made_.size())
        made_.push_back({function, 0});
    return outcomes_[made_[asked_++].outcome];
}

bool Choices::Advance()
{
    asked_ = 0;
    while (!made_.empty()) {
        size_t& outcome = made_.back().outcome;
        if (outcome == 0 && deviations_ < most_deviations_ && outcomes_.size() > 1) {
            ++deviations_;
            ++outcome;
            return true;
        }
        if (outcome > 0 && outcome + 1 < outcomes_.size()) {
            ++outcome;
            return true;
        }
        deviations_ -= outcome > 0;
        made_.pop_back();
    }
    return false;
}

void Choices::Apply(Platform& platform) const
{
    std::map<std::string, std::vector<HRESULT>> answers;
    for (const Choice& choice : made_)
        answers[choice.function].push_back(outcomes_[choice.outcome]);
    for (auto& [function, results] : answers)
        platform.Answer(function, std::move(results));
}

std::string Choices::Describe() const
{
    std::string text;
    for (const Choice& choice : made_)
        text += Format("%s%s %08X", text.empty() ? "" : ", ", choice.function.c_str(),
                       static_cast<unsigned>(outcomes_[choice.outcome]));
    return text;
}

} // namespace kestro::test
