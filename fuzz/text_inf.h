// text_inf.h - an INF's text as sections of lines, split in the simplest way.
#pragma once

#include "inf_sections.h"

#include <utility>
#include <vector>

namespace kestro::fuzz {

// Stands in for SetupAPI. No %strings% are put in and no lines are joined: a fuzzer writes the result
// of both as easily.
class TextInf final : public servicing::InfSections {
  public:
    explicit TextInf(const std::string& text);

    std::vector<std::string> Names() const override;
    std::vector<servicing::InfLine> Section(const std::string& name) const override;

  private:
    std::vector<std::pair<std::string, std::vector<servicing::InfLine>>> sections_;
};

} // namespace kestro::fuzz
