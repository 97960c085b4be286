// lost_power.h - what a disk may hold after the power has failed.
#pragma once

#include "recorded_writes.h"

#include <map>
#include <string>
#include <vector>

namespace kestro::test {

// What files hold, by their paths.
using Files = std::map<std::string, std::string>;

class LostPower {
  public:
    LostPower(const Files& before, std::vector<DiskStep> steps);

    std::size_t Steps() const { return steps_.size(); }
    // The files when the power fails after so many steps. What was synced is there. Of the rest a disk keeps
    // any sectors of any write, and of what happened to names as much as it had got to. Which of it, the
    // seed decides: 0 is for nothing, 1 for everything.
    Files After(std::size_t steps, unsigned seed) const;

  private:
    bool IsSynced(std::size_t step, std::size_t steps) const;

    static constexpr std::size_t kNone = ~std::size_t{0};
    std::map<std::string, std::size_t> names_; // before the first step: which file has the name
    std::vector<std::string> contents_;
    std::vector<DiskStep> steps_;
    std::vector<std::size_t> files_; // which file a step is about
};

} // namespace kestro::test
