// disk_objects.h - the providers, their packs, and the disks.
#pragma once

#include "disk_list.h"
#include "object_parts.h"

#include <functional>

namespace kestro::vds {

Objects DisksWhere(const std::function<bool(const DiskEntry&)>& wanted);
IUnknown* NewPack(const std::wstring& provider, const std::wstring& pack);
IUnknown* NewProvider(const std::wstring& name);

// The different values that the disks have, in the order of the file.
std::vector<std::wstring> Distinct(const std::function<std::wstring(const DiskEntry&)>& value);

} // namespace kestro::vds
