// device_access.h - installing a driver on the running system, and raw handles.
#pragma once

#include <cstdint>

namespace kestro::library {

// Each is one platform call, so a failed call's last-error code reaches the host untouched.

// 1 when the driver was installed, else 0.
std::int32_t InfInstall(const wchar_t* infPath);

// Handles are the caller's to close; null when the open failed. Neither creates a file.
void* OpenVdFile(const wchar_t* path);
void* OpenPhDrive(const wchar_t* path);

} // namespace kestro::library
