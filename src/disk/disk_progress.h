// disk_progress.h - what a disk call tells on its way.
#pragma once

#include "report/operation_log.h"

#include <windows.h>

namespace kestro::library {

// Lines of section Log, and counters on the console. Only a call with a ResultFile tells anything.
class DiskProgress {
  public:
    DiskProgress() = default;
    explicit DiskProgress(OperationLog& log) : log_(&log) {}

    void Tell(const char* line);
    // A label and the number, each on a line of its own.
    void Tell(const char* label, HRESULT number);
    void Count(const char* format, long number);

  private:
    OperationLog* log_ = nullptr;
};

} // namespace kestro::library
