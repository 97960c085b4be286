// inf_services.h - the services that an INF's .Services sections add.
#pragma once

#include "driver_install.h"
#include "inf_reader.h"

namespace kestro::servicing {

inline constexpr std::uint32_t kAssociatedService = 2; // flag of AddService

std::vector<ServiceInstall> ReadServices(InfReader& reader, const PlacedLines& section);

// "%12%\a.sys" as code and rest.
DirectoryPath DirectoryPathOf(const std::string& text);

} // namespace kestro::servicing
