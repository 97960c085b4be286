// disk_progress.cpp - what a disk call tells on its way.
#include "disk/disk_progress.h"

#include "report/console_trace.h"
#include "report/decimal_text.h"

namespace kestro::library {

void DiskProgress::Tell(const char* line)
{
    if (log_ != nullptr)
        log_->AppendLine(line);
}

void DiskProgress::Tell(const char* label, HRESULT number)
{
    Tell(label);
    Tell(ToDecimalText(number).c_str());
}

void DiskProgress::Count(const char* format, long number)
{
    if (log_ != nullptr)
        TracePrint(format, number);
}

} // namespace kestro::library
