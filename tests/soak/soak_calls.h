// soak_calls.h - every export, callable by number.
#pragma once

#include "soak/quiet_platform.h"
#include "support/kestro_library.h"

#include <string>
#include <vector>

namespace kestro::test {

// What a call is given.
struct SoakArguments {
    ResultFile result;
    const wchar_t* file; // exists
    int tag;             // part of every name
};

struct SoakCall {
    std::string name; // of the export, and of the case where it has two
    // Its return value as a number; handles are closed.
    unsigned (*run)(const SoakArguments& arguments);
    unsigned success; // what it returns when nothing fails
    Leftovers leaves; // what it leaves behind by contract when nothing fails
    bool reports;     // into a ResultFile
};

const std::vector<SoakCall>& SoakCalls();

} // namespace kestro::test
