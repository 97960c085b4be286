// make_samples.cpp - writes the sample driver packages: make_samples FOLDER [BYTES].
#include "sample_packages.h"

#include <cstdio>
#include <exception>
#include <string>

int main(int count, char** arguments)
{
    if (count != 2 && count != 3) {
        std::fputs("usage: make_samples FOLDER [BYTES OF EACH FILE]\n", stderr);
        return 2;
    }
    try {
        kestro::samples::WriteSamplePackages(arguments[1],
                                             count > 2 ? std::stoul(arguments[2]) : 5000);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_samples: %s\n", error.what());
        return 1;
    }
    return 0;
}
