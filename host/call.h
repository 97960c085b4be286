// call.h - how the host makes a call: on a thread of its own, followed in its ResultFile, with what the
// library prints kept off the host's own output.
#pragma once

#include "kestro.hpp"

#include <chrono>
#include <functional>
#include <string>

namespace kestro::host {

// Where a call reports to: the file the user named, or one that is removed afterwards.
class ResultPath {
  public:
    // Number n of a command with several calls gets a file of its own beside the first. A narrow call takes
    // only a path that the ANSI code page can hold; another one is refused.
    ResultPath(const std::wstring& named, int number, Form form);
    ~ResultPath();
    ResultPath(const ResultPath&) = delete;
    ResultPath& operator=(const ResultPath&) = delete;

    const std::wstring& Text() const { return path_; }

  private:
    std::wstring path_;
    bool temporary_;
};

// Throws UsageError when one of the files of so many calls is in the way.
void RequireNewResults(const std::wstring& named, int calls);

// Told each new log line once, and now and then that the call still runs (null), with the time since it began.
using Follower = std::function<void(const LogLine* line, std::chrono::milliseconds since)>;

// A request to end does not cut the call off; it is left to the caller to look for one afterwards.
Runner FollowingRunner(Follower follower);

} // namespace kestro::host
