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
    explicit Choices(std::vector<HRESULT> outcomes) : outcomes_(std::move(outcomes)) {}

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
    std::vector<Choice> made_;
    size_t asked_ = 0;
};

} // namespace kestro::test
