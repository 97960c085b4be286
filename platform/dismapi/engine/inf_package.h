// inf_package.h - reads what the driver store needs out of an INF.
#pragma once

#include "driver_package.h"
#include "inf_sections.h"

namespace kestro::servicing {

// Never fails: what an INF does not say is empty in the result, and the store decides what it needs.
DriverPackage ReadPackage(const InfSections& inf, Architecture architecture);

} // namespace kestro::servicing
