// image_inventory.h - the driver packages of a mounted image: the list, and one package's details.
#pragma once

#include "report/step_reporter.h"

namespace kestro::library {

// Lists the out-of-box packages on the console and in the log. Throws what AnsiName throws; the
// session then stays open.
Outcome GetDrivers(StepReporter& report, const wchar_t* ImagePath, const wchar_t* LogFilePath);

// Driver is a published name or the path of an INF. On success the result is the query's own code,
// and the session stays open with the API initialised.
Outcome GetDriverInfo(StepReporter& report, const wchar_t* ImagePath, const wchar_t* Driver,
                      const wchar_t* LogFilePath);

// What an export of the query returns: the low byte of a successful query's code, whatever the
// form, and on failure its form's own return value.
inline std::uint8_t QueryReturn(const Outcome& outcome, std::uint8_t formReturn)
{
    return outcome.exit == Outcome::Exit::Success ? static_cast<std::uint8_t>(outcome.result)
                                                  : formReturn;
}

} // namespace kestro::library
