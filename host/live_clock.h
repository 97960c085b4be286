// live_clock.h - what a terminal shows while the servicing API works: how long it has taken so far, and how far it
// is where that is told.
#pragma once

#include "output.h"

#include <thread>

namespace kestro::host {

class LiveClock {
  public:
    explicit LiveClock(const Output& out);
    ~LiveClock();
    LiveClock(const LiveClock&) = delete;
    LiveClock& operator=(const LiveClock&) = delete;

  private:
    const Output& out_;
    HANDLE end_;
    std::thread thread_;
};

} // namespace kestro::host
