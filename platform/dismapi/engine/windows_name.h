// windows_name.h - which names of files Windows can hold.
#pragma once

#include <string>

namespace kestro::servicing {

// Null for a name that Windows can hold.
const char* WhyNoWindowsName(const std::string& name);

} // namespace kestro::servicing
