// inf_configuration.h - what an install section of an INF does.
#pragma once

#include "driver_install.h"
#include "inf_reader.h"
#include "inf_source_files.h"

namespace kestro::servicing {

// The section that Windows takes for `section`: <name>.NT<architecture>, <name>.NT or <name>, the first
// that exists; `section` itself if there is none. In the case of `section`: a section's head may have
// another.
std::string SectionToInstall(const InfFile& inf, const std::string& section,
                             Architecture architecture);

// `section` as SectionToInstall found it.
Configuration ReadConfiguration(InfReader& reader, const std::string& section,
                                const InfSourceFiles& sources);

} // namespace kestro::servicing
