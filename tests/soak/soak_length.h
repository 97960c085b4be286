// soak_length.h - how long the soak tests go on: short as a part of the tests, long by ./dev soak.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace kestro::test {

struct SoakLength {
    long calls = 1000;         // in one process
    long calls_of_thread = 20; // of each of eight
    bool shows_progress = false;

    static SoakLength FromEnvironment()
    {
        if (!std::getenv("KESTRO_SOAK"))
            return {};
        return {100000, 1000, true};
    }

    void ShowProgress(long done, long all) const
    {
        if (!shows_progress || done % std::max(1L, all / 50) != 0)
            return;
        std::fprintf(stderr, "\r%3ld %% of %ld ", 100 * done / all, all);
        std::fflush(stderr);
    }
};

} // namespace kestro::test
