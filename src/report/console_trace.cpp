// console_trace.cpp - formatted output to the host's standard output.
#include "report/console_trace.h"

// The C headers alone: the C++ ones bring in mingw-w64's own formatter, whose wide %s is narrow
// text.
#include <stdarg.h>
#include <stdio.h>
#include <wchar.h>

namespace kestro::library {

void TracePrint(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vprintf(format, arguments);
    va_end(arguments);
    fflush(stdout);
}

void TracePrintW(const wchar_t* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    vwprintf(format, arguments);
    va_end(arguments);
    fflush(stdout);
}

} // namespace kestro::library
