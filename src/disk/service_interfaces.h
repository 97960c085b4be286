// service_interfaces.h - the Virtual Disk Service as this library sees it: interfaces generated from vds.idl, whose
// records are pinned to the service's layout.
#pragma once

#include <cstddef>

#include <windows.h>

#include <objbase.h>

#include "vds_interfaces.h"

namespace kestro::library {

inline constexpr CLSID CLSID_VdsLoader = {
    0x9c38ed61, 0xd565, 0x4728, {0xae, 0xee, 0xc8, 0x09, 0x52, 0xf0, 0xec, 0xde}};

static_assert(sizeof(VDS_DISK_PROP) == 128);
static_assert(offsetof(VDS_DISK_PROP, status) == 16);
static_assert(offsetof(VDS_DISK_PROP, ullSize) == 40);
static_assert(offsetof(VDS_DISK_PROP, ulFlags) == 60);
static_assert(offsetof(VDS_DISK_PROP, PartitionStyle) == 68);
static_assert(offsetof(VDS_DISK_PROP, DiskGuid) == 72);
static_assert(offsetof(VDS_DISK_PROP, pwszDiskAddress) == 88);
static_assert(offsetof(VDS_DISK_PROP, pwszName) == 96);
static_assert(offsetof(VDS_DISK_PROP, pwszDevicePath) == 120);

static_assert(sizeof(VDS_PROVIDER_PROP) == 64);
static_assert(offsetof(VDS_PROVIDER_PROP, pwszName) == 16);
static_assert(offsetof(VDS_PROVIDER_PROP, guidVersionId) == 24);
static_assert(offsetof(VDS_PROVIDER_PROP, pwszVersion) == 40);
static_assert(offsetof(VDS_PROVIDER_PROP, type) == 48);
static_assert(offsetof(VDS_PROVIDER_PROP, sRebuildPriority) == 60);

static_assert(sizeof(VDS_PACK_PROP) == 32);
static_assert(offsetof(VDS_PACK_PROP, pwszName) == 16);
static_assert(offsetof(VDS_PACK_PROP, status) == 24);
static_assert(offsetof(VDS_PACK_PROP, ulFlags) == 28);

static_assert(sizeof(VDS_ASYNC_OUTPUT) == 32);
static_assert(offsetof(VDS_ASYNC_OUTPUT, ullOutput) == 8);

} // namespace kestro::library
