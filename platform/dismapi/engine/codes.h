// codes.h - the result codes of the servicing API, with the values that Windows documents.
#pragma once

#include <cstdint>

namespace kestro::servicing {

using Code = std::int32_t;

constexpr Code CodeOf(std::uint32_t bits)
{
    return static_cast<Code>(bits);
}

namespace code {

inline constexpr Code ok = 0;

// Win32 codes.
inline constexpr Code file_not_found = CodeOf(0x80070002);
inline constexpr Code path_not_found = CodeOf(0x80070003);
inline constexpr Code too_many_open_files = CodeOf(0x80070004);
inline constexpr Code access_denied = CodeOf(0x80070005);
inline constexpr Code bad_format = CodeOf(0x8007000B);
inline constexpr Code out_of_memory = CodeOf(0x8007000E);
inline constexpr Code write_fault = CodeOf(0x8007001D);
inline constexpr Code read_fault = CodeOf(0x8007001E);
inline constexpr Code not_supported = CodeOf(0x80070032);
inline constexpr Code invalid_parameter = CodeOf(0x80070057);
inline constexpr Code disk_full = CodeOf(0x80070070);
inline constexpr Code invalid_name = CodeOf(0x8007007B);
inline constexpr Code unexpected = CodeOf(0x8000FFFF);

inline constexpr Code cancelled = CodeOf(0x800704D3);
inline constexpr Code bad_hive = CodeOf(0x800703F1);

// SetupAPI's.
inline constexpr Code setup_expected_section = CodeOf(0x800F0000);
inline constexpr Code setup_bad_section_line = CodeOf(0x800F0001);
inline constexpr Code setup_section_too_long = CodeOf(0x800F0002);
inline constexpr Code setup_general_syntax = CodeOf(0x800F0003);
inline constexpr Code setup_wrong_style = CodeOf(0x800F0100);
inline constexpr Code inf_without_class = CodeOf(0x800F0200);
inline constexpr Code inf_class_invalid = CodeOf(0x800F0206);
inline constexpr Code catalog_missing = CodeOf(0x800F022F);
inline constexpr Code signer_not_trusted = CodeOf(0x800F0242);
inline constexpr Code catalog_for_other_windows = CodeOf(0x800F0244);
inline constexpr Code package_unsigned = CodeOf(0x800F0247);
inline constexpr Code file_not_in_catalog = CodeOf(0x800F024B);
inline constexpr Code bad_digest = CodeOf(0x80096010);

// The servicing API's own.
inline constexpr Code busy = CodeOf(0x800F0902);
inline constexpr Code not_initialized = CodeOf(0xC0040001);
inline constexpr Code open_session_handles = CodeOf(0xC0040003);
inline constexpr Code invalid_session = CodeOf(0xC0040004);
inline constexpr Code invalid_image_name = CodeOf(0xC0040006);
inline constexpr Code open_handles_at_unmount = CodeOf(0xC004000A);
inline constexpr Code open_handles_at_remount = CodeOf(0xC004000C);
inline constexpr Code image_index_missing = CodeOf(0xC1510113);
inline constexpr Code needs_remount = CodeOf(0xC1510114);

// The imaging library's.
inline constexpr Code image_file_read_only = CodeOf(0xC1420101);
inline constexpr Code directory_not_mounted = CodeOf(0xC142010B);
inline constexpr Code mounted_read_only = CodeOf(0xC142010C);
inline constexpr Code directory_in_use = CodeOf(0xC1420113);
inline constexpr Code directory_not_empty = CodeOf(0xC1420114);
inline constexpr Code directory_missing = CodeOf(0xC1420115);
inline constexpr Code partly_unmounted = CodeOf(0xC1420117);
inline constexpr Code not_a_valid_mount = CodeOf(0xC142011C);
inline constexpr Code cannot_commit_partial = CodeOf(0xC142011D);
inline constexpr Code mount_damaged = CodeOf(0xC1420120);
inline constexpr Code image_file_changed = CodeOf(0xC1420122);
inline constexpr Code image_mounted = CodeOf(0xC1420126);
inline constexpr Code image_mounted_read_write = CodeOf(0xC1420127);
inline constexpr Code split_image = CodeOf(0xC1420130);
inline constexpr Code compression_not_mountable = CodeOf(0xC142013C);

} // namespace code
} // namespace kestro::servicing
