// operation_log.h - the running log of one call: numbered lines, their count, the stamp of the last
// write, and the wide form's step write.
#pragma once

#include <cstdint>

namespace kestro::library {

// One call's log on the caller's ResultFile, whose path is borrowed. A narrow call has only the
// narrow path, a wide call only the wide one.
struct LogRecord {
    const char* resultFile = nullptr;
    const wchar_t* resultFileW = nullptr;
    // Counted up before each line: a call's first line is number 2.
    std::int32_t lineCount = 1;
};

// No operation below looks at what became of its writes.

class OperationLog {
  public:
    explicit OperationLog(const char* resultFile) : record_{.resultFile = resultFile} {}

    // [Log] Righe, the line itself, then the stamp.
    void AppendLine(const char* text);
    // [Status] LastWrite = local time as YYYYMMDDhhmmss.
    void WriteLastWrite();

  private:
    LogRecord record_;
};

class OperationLogW {
  public:
    explicit OperationLogW(const wchar_t* resultFile) : record_{.resultFileW = resultFile} {}

    // As AppendLine, but its stamp is the narrow one, on the null narrow path: a line never stamps
    // a wide ResultFile.
    void AppendLineW(const char* text) noexcept;
    void AppendLineW(const wchar_t* text) noexcept;
    void WriteLastWriteW() noexcept;
    // One write with the stamp after it. Short names do not arrive as given: see SharedText.
    void WriteStepW(const char* section, const char* key, const char* value) noexcept;

  private:
    LogRecord record_;
};

} // namespace kestro::library
