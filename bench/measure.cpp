// measure.cpp - times two sides in turn.
#include "measure.h"

#include <algorithm>
#include <vector>

#include <windows.h>

namespace kestro::bench {

double Microseconds()
{
    static const double frequency = [] {
        LARGE_INTEGER ticks;
        QueryPerformanceFrequency(&ticks);
        return static_cast<double>(ticks.QuadPart);
    }();
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) * 1e6 / frequency;
}

static Spread SpreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return {values[n / 4], values[n / 2], values[n * 3 / 4]};
}

Comparison Compare(const std::function<void()>& library, const std::function<void()>& floor,
                   const std::function<void()>& reset, int rounds, int repeats)
{
    std::vector<double> left, right, ratio;
    const auto time = [&](const std::function<void()>& side) {
        reset();
        const double start = Microseconds();
        for (int i = 0; i < repeats; ++i)
            side();
        return (Microseconds() - start) / repeats;
    };
    time(library), time(floor);
    for (int i = 0; i < rounds; ++i) {
        const bool first = i % 2 == 0;
        const double a = time(first ? library : floor);
        const double b = time(first ? floor : library);
        left.push_back(first ? a : b);
        right.push_back(first ? b : a);
        ratio.push_back(left.back() / right.back());
    }
    return {SpreadOf(left), SpreadOf(right), SpreadOf(ratio)};
}

nlohmann::json JsonOf(const Spread& spread)
{
    return {{"low", spread.low}, {"median", spread.median}, {"high", spread.high}};
}

} // namespace kestro::bench
