// disk_stubs.h - a disk service that does nothing: one unallocated disk, and one provider with one pack
// that holds one disk.
#pragma once

#include <windows.h>

#include <unknwn.h>

namespace kestro::bench {

inline constexpr wchar_t kUnallocatedDisk[] = L"\\\\?\\PhysicalDrive1";
inline constexpr wchar_t kPackDisk[] = L"\\\\?\\PhysicalDrive2";

// Stands for CoCreateInstance.
HRESULT WINAPI CreateDiskService(REFCLSID classId, IUnknown* outer, DWORD context, REFIID id,
                                 void** loader);

} // namespace kestro::bench
