// platform_log.h - the servicing API's own log file: time, level and message.
#pragma once

#include <string>

namespace kestro::servicing {

enum class LogLevel { Error = 0, Warning = 1, Info = 2 };

// Lines are appended one by one, so that what was logged is in the file when a process is killed. A
// log that cannot be written costs its lines and nothing else.
class PlatformLog {
  public:
    PlatformLog() = default;
    PlatformLog(const std::string& path, LogLevel level) : path_(path), level_(level) {}

    void Write(LogLevel level, const std::string& message) const;
    void Error(const std::string& message) const { Write(LogLevel::Error, message); }
    void Warning(const std::string& message) const { Write(LogLevel::Warning, message); }
    void Info(const std::string& message) const { Write(LogLevel::Info, message); }

  private:
    std::string path_;
    LogLevel level_ = LogLevel::Info;
};

} // namespace kestro::servicing
