// step_reporter.h - what an operation reports through. An operation is written once against
// StepReporter; everything in which the narrow and the wide form differ is in the two reporters and
// the two return senses below.
#pragma once

#include "report/operation_log.h"

#include <cstdint>

#include <windows.h>

namespace kestro::library {

// A platform step as a host sees it: its section, and the log line that names its failed function.
struct Step {
    const char* section;
    const char* failureLine;
};

class StepReporter {
  public:
    // One numbered line of section Log.
    virtual void LogLine(const char* text) = 0;
    // One write, then the stamp.
    virtual void Write(const char* section, const char* key, const char* value) = 0;

    void LogNumber(std::int32_t number);
    void WriteOk(const Step& step);
    void WriteErr(const Step& step);
    // [section] key = the thread's last-error code as it is at this moment.
    void WriteLastError(const char* section, const char* key);

    // Two log lines, then the last-error code those writes left behind: it need not be the failed
    // call's own.
    void ReportFailure(const Step& step, HRESULT result);
    // Whether a step succeeded; one that failed is reported, and kept for the exit.
    bool Succeeded(const Step& step, HRESULT result);
    // How every exit begins: the failed step's Result=ERR. Returns the code it failed with.
    HRESULT WriteFailedStep();
    // A failing clean-up call is reported in full at once; result is the code of the step that
    // failed first.
    void ReportCleanUpFailure(const Step& step, HRESULT result);

  protected:
    ~StepReporter() = default;

  private:
    const Step* failed_ = nullptr;
    HRESULT failure_ = S_OK;
};

// Narrow form: writes arrive as given.
class NarrowReporter final : public StepReporter {
  public:
    explicit NarrowReporter(const char* resultFile) : resultFile_(resultFile), log_(resultFile) {}
    void LogLine(const char* text) override;
    void Write(const char* section, const char* key, const char* value) override;

  private:
    const char* resultFile_;
    OperationLog log_;
};

// Wide form: step writes go through the log's shared text holder, and log lines do not stamp.
class WideReporter final : public StepReporter {
  public:
    explicit WideReporter(const wchar_t* resultFile) : log_(resultFile) {}
    void LogLine(const char* text) override;
    void Write(const char* section, const char* key, const char* value) override;

  private:
    OperationLogW log_;
};

// The exit an operation left by and the result code it left with.
struct Outcome {
    enum class Exit { Success, Failure };
    Exit exit;
    HRESULT result;
};

// The two forms return opposite senses. Narrow: 0 is success, and a success code other than S_OK
// counts as 1 too. Wide: 1 is success.
inline std::uint8_t NarrowReturn(const Outcome& outcome)
{
    return outcome.exit == Outcome::Exit::Failure || outcome.result != S_OK;
}

inline std::uint8_t WideReturn(const Outcome& outcome)
{
    return outcome.exit == Outcome::Exit::Success || SUCCEEDED(outcome.result);
}

} // namespace kestro::library
