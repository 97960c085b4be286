// make_samples.cpp - writes the sample driver packages: make_samples FOLDER.
#include "sample_packages.h"

#include <cstdio>
#include <exception>

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fputs("usage: make_samples FOLDER\n", stderr);
        return 2;
    }
    try {
        kestro::samples::WriteSamplePackages(arguments[1]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_samples: %s\n", error.what());
        return 1;
    }
    return 0;
}
