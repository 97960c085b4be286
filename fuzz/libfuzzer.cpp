// libfuzzer.cpp - one target as libFuzzer calls it.
#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    kestro::fuzz::KESTRO_FUZZ_TARGET(std::string(data, data + size));
    return 0;
}
