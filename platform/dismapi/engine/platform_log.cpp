// platform_log.cpp - the servicing API's own log file.
#include "platform_log.h"

#include "file_system.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

namespace kestro::servicing {

void PlatformLog::Write(LogLevel level, const std::string& message) const
{
    if (path_.empty() || level > level_)
        return;

    timeval now = {};
    gettimeofday(&now, nullptr);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d.%03d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(now.tv_usec / 1000));
    static constexpr const char* names[] = {"Error  ", "Warning", "Info   "};
    const std::string line = std::string(stamp) + "  " + names[static_cast<int>(level)] + "  [" +
                             std::to_string(getpid()) + "] " + message + "\r\n";

    // One write: lines of several processes do not mix.
    const FileDescriptor file(open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    if (file) [[maybe_unused]]
        const ssize_t written = write(file.Get(), line.data(), line.size());
}

} // namespace kestro::servicing
