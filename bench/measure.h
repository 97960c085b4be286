// measure.h - times two sides in turn.
#pragma once

#include <functional>

#include <nlohmann/json.hpp>

namespace kestro::bench {

double Microseconds();

struct Spread {
    double low, median, high; // the quartiles
};

nlohmann::json JsonOf(const Spread& spread);

struct Comparison {
    Spread library, floor, ratio;
};

// Runs both sides in turn; before each, `reset` forgets the file that was written.
Comparison Compare(const std::function<void()>& library, const std::function<void()>& floor,
                   const std::function<void()>& reset, int rounds, int repeats);

} // namespace kestro::bench
