// step_reporter.cpp - the reports common to all operations, and the two forms' writes.
#include "report/step_reporter.h"

#include "report/decimal_text.h"

namespace kestro::library {

void StepReporter::LogNumber(std::int32_t number)
{
    LogLine(ToDecimalText(number).c_str());
}

void StepReporter::WriteOk(const Step& step)
{
    Write(step.section, "Result", "OK");
}

void StepReporter::WriteErr(const Step& step)
{
    Write(step.section, "Result", "ERR");
}

void StepReporter::WriteLastError(const char* section, const char* key)
{
    // Signed like every other number, although the platform's code is not.
    const auto lastError = static_cast<std::int32_t>(GetLastError());
    Write(section, key, ToDecimalText(lastError).c_str());
}

void StepReporter::ReportFailure(const Step& step, HRESULT result)
{
    LogLine(step.failureLine);
    LogNumber(result);
    WriteLastError(step.section, "ErrorCode");
}

bool StepReporter::Succeeded(const Step& step, HRESULT result)
{
    if (SUCCEEDED(result))
        return true;
    ReportFailure(step, result);
    failed_ = &step;
    failure_ = result;
    return false;
}

HRESULT StepReporter::WriteFailedStep()
{
    WriteErr(*failed_);
    return failure_;
}

void StepReporter::ReportCleanUpFailure(const Step& step, HRESULT result)
{
    ReportFailure(step, result);
    WriteErr(step);
}

void NarrowReporter::LogLine(const char* text)
{
    log_.AppendLine(text);
}

void NarrowReporter::Write(const char* section, const char* key, const char* value)
{
    WritePrivateProfileStringA(section, key, value, resultFile_);
    log_.WriteLastWrite();
}

void WideReporter::LogLine(const char* text)
{
    log_.AppendLineW(text);
}

void WideReporter::Write(const char* section, const char* key, const char* value)
{
    log_.WriteStepW(section, key, value);
}

} // namespace kestro::library
