// live_clock.cpp - what a terminal shows while the servicing API works.
#include "live_clock.h"

namespace kestro::host {

LiveClock::LiveClock(const Output& out)
    : out_(out), end_(CreateEventW(nullptr, TRUE, FALSE, nullptr))
{
    if (!out_.IsLive())
        return;
    thread_ = std::thread([this, start = std::chrono::steady_clock::now()] {
        while (WaitForSingleObject(end_, 100) == WAIT_TIMEOUT)
            out_.Live(std::chrono::duration_cast<std::chrono::milliseconds>(
                std::chrono::steady_clock::now() - start));
    });
}

LiveClock::~LiveClock()
{
    SetEvent(end_);
    if (thread_.joinable())
        thread_.join();
    CloseHandle(end_);
    out_.EndLive();
}

} // namespace kestro::host
