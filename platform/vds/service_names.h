// service_names.h - the names by which the service, its registration and its clients know each other.
#pragma once

#include <windows.h>

namespace kestro::vds {

inline constexpr wchar_t kServiceName[] = L"vds";

// The class that clients ask for; its AppID names the service.
inline constexpr CLSID kLoaderClass = {
    0x9c38ed61, 0xd565, 0x4728, {0xae, 0xee, 0xc8, 0x09, 0x52, 0xf0, 0xec, 0xde}};
inline constexpr wchar_t kLoaderClassText[] = L"{9C38ED61-D565-4728-AEEE-C80952F0ECDE}";
inline constexpr wchar_t kAppIdText[] = L"{C1E5A1B4-6C0F-4D0B-9C55-2F6E0B7D3A18}";

// What Wine's table of running classes holds for that class: it leads to kestro_vdsclient.dll in the client.
inline constexpr CLSID kReferenceClass = {
    0x3f6d2c74, 0x8b1e, 0x4a57, {0xa2, 0x0d, 0x71, 0xc4, 0x5e, 0x93, 0xb6, 0x0f}};
inline constexpr wchar_t kReferenceClassText[] = L"{3F6D2C74-8B1E-4A57-A20D-71C45E93B60F}";

// Where the running service leaves the way to its loader, for as long as the prefix runs.
inline constexpr wchar_t kFactoryKey[] = L"Software\\Kestro\\Disk service";
inline constexpr wchar_t kFactoryValue[] = L"Factory";

} // namespace kestro::vds
