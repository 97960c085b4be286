// disk_clean.h - taking everything off a disk.
#pragma once

#include "partition_table.h"
#include "raw_disk.h"

#include <cstdint>
#include <functional>

namespace kestro::vds {

// The service's result codes, with the values that Windows documents.
namespace code {
inline constexpr std::int32_t ok = 0;
inline constexpr std::int32_t partially_cleaned = 0x0004241A; // a success
inline constexpr std::int32_t not_supported = static_cast<std::int32_t>(0x80042400);
inline constexpr std::int32_t not_ready = static_cast<std::int32_t>(0x80042401);
inline constexpr std::int32_t object_not_found = static_cast<std::int32_t>(0x80042405);
inline constexpr std::int32_t operation_pending = static_cast<std::int32_t>(0x80042409);
inline constexpr std::int32_t cancelled = static_cast<std::int32_t>(0x8004240D);
inline constexpr std::int32_t dynamic_disk_not_empty = static_cast<std::int32_t>(0x80042414);
inline constexpr std::int32_t being_cleaned = static_cast<std::int32_t>(0x80042558);
inline constexpr std::int32_t boot_disk = static_cast<std::int32_t>(0x80042807);
inline constexpr std::int32_t disk_offline = static_cast<std::int32_t>(0x8004280A);
inline constexpr std::int32_t disk_read_only = static_cast<std::int32_t>(0x8004280B);
inline constexpr std::int32_t system_disk = static_cast<std::int32_t>(0x80042811);
inline constexpr std::int32_t clean_with_data = static_cast<std::int32_t>(0x80042910);
inline constexpr std::int32_t clean_with_oem = static_cast<std::int32_t>(0x80042911);
inline constexpr std::int32_t clean_with_critical = static_cast<std::int32_t>(0x80042912);
inline constexpr std::int32_t io_error = static_cast<std::int32_t>(0x8007045D);
inline constexpr std::int32_t invalid_argument = static_cast<std::int32_t>(0x80070057);
} // namespace code

struct DiskState {
    bool online = true, readOnly = false, system = false, boot = false;
};

struct CleanFlags {
    bool force = false;    // also a disk with data or EFI system partitions
    bool forceOem = false; // also a disk with an OEM partition
    bool full = false;     // every sector, not just the partitioning structures
};

// Whether a clean may begin: ok, or the code it is refused with.
std::int32_t MayClean(const DiskState& state, const PartitionTable& table, const CleanFlags& flags);

// Told the percentage after each stretch; says whether to go on.
using CleanProgress = std::function<bool(unsigned percent)>;

// Returns ok or cancelled, or partially_cleaned when sectors behind the partitioning structures cannot be
// written; throws DiskError when the structures cannot.
std::int32_t Clean(RawDisk& disk, bool full, const CleanProgress& progress);

} // namespace kestro::vds
