// operations.h - what runs on after the call that began it.
#pragma once

namespace kestro::vds {

// While one lives, the service's process does not end: an operation is brought to its end.
class RunningOperation {
  public:
    RunningOperation();
    ~RunningOperation();
    RunningOperation(const RunningOperation&) = delete;
    RunningOperation& operator=(const RunningOperation&) = delete;

    static void WaitForAll();
};

} // namespace kestro::vds
