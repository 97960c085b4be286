// image_drivers.h - changing the driver set of an offline image.
#pragma once

#include "report/step_reporter.h"

namespace kestro::library {

// DriverPath is the path of one INF. An unsigned package is not forced in.
Outcome AddDriver(StepReporter& report, const wchar_t* ImagePath, const wchar_t* DriverPath,
                  const wchar_t* LogFilePath);

// DriverPath is the package's published name.
Outcome RemoveDriver(StepReporter& report, const wchar_t* ImagePath, const wchar_t* DriverPath,
                     const wchar_t* LogFilePath);

inline constexpr int kDriverListLength = 8;

// DriverPaths has kDriverListLength entries. A package that fails is recorded and does not fail the
// call. Throws what AnsiName throws; the session then stays open.
Outcome AddDriverList(StepReporter& report, const wchar_t* ImagePath,
                      const wchar_t* const* DriverPaths, const wchar_t* LogFilePath);

} // namespace kestro::library
