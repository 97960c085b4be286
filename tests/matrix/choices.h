// choices.h - walks through every combination of answers that a prediction asks for.
#pragma once

#include "support/platform.h"

#include <string>
#include <vector>

namespace kestro::test {

// Predictions ask for answers one by one; each first gets the first outcome. Advance moves the last
// answer that has outcomes left to its next one and forgets those after it, so that exactly the
// combinations that can be reached come up, each once.
class Choices {
  public:
    static constexpr int any_number = 1000;

    // At most so many answers of a combination are another than the first outcome.
    explicit Choices(std::vector<HRESULT> outcomes, int most_deviations = any_number)
        : outcomes_(std::move(outcomes)), most_deviations_(most_deviations)
    {
    }

    HRESULT Next(const std::string& function);
    // False when every combination has been had.
    bool Advance();

    // Scripts the platform with the answers of this combination.
    void Apply(Platform& platform) const;
    std::string Describe() const;

  private:
    struct Choice {
        std::string function;
        size_t outcome;
    };
    std::vector<HRESULT> outcomes_;
    int most_deviations_;
    int deviations_ = 0; // among the answers made
    std::vector<Choice> made_;
    size_t asked_ = 0;
};

} // namespace kestro::test
