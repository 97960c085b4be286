// process_state.h - what this process holds of the system.
#pragma once

#include <cstddef>
#include <windows.h>

namespace kestro::test {

struct ProcessState {
    DWORD handles = 0;
    size_t heap_blocks = 0; // in use, of all heaps
    size_t heap_bytes = 0;
    size_t private_bytes = 0;
};

ProcessState MeasureProcess();

} // namespace kestro::test
