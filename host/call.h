// call.h - one call of the library: made on a thread of its own, followed in its ResultFile, with what
// it prints kept off the host's own output.
#pragma once

#include "kestro.hpp"

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

namespace kestro::host {

struct CallResult {
    std::int32_t returned = 0;
    DWORD lastError = 0;
    Report report;
    std::string console; // what the library printed, UTF-8
    std::chrono::milliseconds elapsed{};
};

// Where a call reports to: the file the user named, or one that is removed afterwards.
class ResultPath {
  public:
    // Number n of a command with several calls gets a file of its own beside the first.
    ResultPath(const std::wstring& named, int number);
    ~ResultPath();
    ResultPath(const ResultPath&) = delete;
    ResultPath& operator=(const ResultPath&) = delete;

    const std::wstring& Wide() const { return path_; }
    // The path for a narrow call. One that the ANSI code page cannot hold is refused.
    std::string Narrow() const;

  private:
    std::wstring path_;
    bool temporary_;
};

// Told each new log line once, with the time since the call began.
using Follower = std::function<void(const LogLine& line, std::chrono::milliseconds since)>;

// Runs the call with COM initialised on its thread, as the disk functions need it.
CallResult RunCall(const ResultPath& path, const std::function<std::int32_t()>& call,
                   const Follower& follower);

} // namespace kestro::host
