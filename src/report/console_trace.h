// console_trace.h - formatted output to the host's standard output.
#pragma once

namespace kestro::library {

// The formats follow the platform runtime's rules: in a wide format %s is wide text.
// The text has left the runtime's buffer when the call returns.
void TracePrint(const char* format, ...);
void TracePrintW(const wchar_t* format, ...);

} // namespace kestro::library
