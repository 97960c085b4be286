// clean_operation.h - a clean that runs on a thread of its own, and the object its caller waits on.
#pragma once

#include "com_object.h"
#include "disk_list.h"

#include <vds_interfaces.h>

namespace kestro::vds {

// Begins a clean and hands out the object that stands for it. Refusals come back at once.
HRESULT BeginClean(const DiskEntry& disk, const CleanFlags& flags, IVdsAsync** async);

} // namespace kestro::vds
