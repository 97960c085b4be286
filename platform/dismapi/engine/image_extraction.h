// image_extraction.h - fills the directory of a mount.
#pragma once

#include "mount_record.h"
#include "wim_file.h"

namespace kestro::servicing {

// Extracts the record's image into its directory, on several processors side by side. The progress is
// told on the calling thread. Throws ServicingError and then leaves the directory partly filled.
void ExtractImage(const MountRecord& record, const Progress& progress);

} // namespace kestro::servicing
