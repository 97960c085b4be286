// main.cpp - runs a test program's tests and says how many transcripts they compared.
#include "support/transcript.h"

#include <cstdio>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::printf("%d transcripts compared\n", kestro::test::TranscriptsCompared());
    return result;
}
