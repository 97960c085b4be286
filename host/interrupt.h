// interrupt.h - Ctrl-C and the other requests to end, which come while work is under way: it is brought to a
// clean end instead of being cut off.
#pragma once

#include <windows.h>

namespace kestro::host {

// While one lives, a request to end does not end the program.
class InterruptGuard {
  public:
    InterruptGuard();
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;
};

// Whether one came, in this run of the program, and the event that it sets.
bool Interrupted();
HANDLE InterruptEvent();

} // namespace kestro::host
