// inf_service_directives.h - what a service section of an INF says of its service beside the section's
// basic entries.
#pragma once

#include "driver_install.h"
#include "inf_reader.h"

namespace kestro::servicing {

std::vector<ServiceDirective> ReadServiceDirectives(InfReader& reader, const PlacedLines& section);

} // namespace kestro::servicing
