// disk_online.h - bringing a disk online and taking it offline.
#pragma once

#include "disk/vds.h"

namespace kestro::library {

HRESULT BringDiskOnline(const wchar_t* diskName);
HRESULT TakeDiskOffline(const wchar_t* diskName);

} // namespace kestro::library
