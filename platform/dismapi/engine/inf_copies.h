// inf_copies.h - the files that an INF's CopyFiles directives install, and where to.
#pragma once

#include "driver_install.h"
#include "inf_reader.h"
#include "inf_source_files.h"

namespace kestro::servicing {

// `sources` are those of the reader's own INF; a file of another INF is known by its name alone.
std::vector<FileCopy> ReadCopies(InfReader& reader, const PlacedLines& section,
                                 const InfSourceFiles& sources);

} // namespace kestro::servicing
