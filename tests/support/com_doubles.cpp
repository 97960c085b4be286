// com_doubles.cpp - doubles of what the library calls on its way to a disk: the COM functions and
// the comparison of names.
#include "support/scripted_object.h"

#include <cwchar>

namespace kestro::test {

namespace {

// --- identifiers, as published ---

struct Identifier {
    GUID id;
    const char* name;
};

constexpr Identifier identifiers[] = {
    {{0x9C38ED61, 0xD565, 0x4728, {0xAE, 0xEE, 0xC8, 0x09, 0x52, 0xF0, 0xEC, 0xDE}}, "VdsLoader"},
    {{0xE0393303, 0x90D4, 0x4A97, {0xAB, 0x71, 0xE9, 0xB6, 0x71, 0xEE, 0x27, 0x29}},
     "IVdsServiceLoader"},
    {{0x10C5E575, 0x7984, 0x4E81, {0xA5, 0x6B, 0x43, 0x1F, 0x5F, 0x92, 0xAE, 0x42}},
     "IVdsProvider"},
    {{0x9AA58360, 0xCE33, 0x4F92, {0xB6, 0x58, 0xED, 0x24, 0xB1, 0x44, 0x25, 0xB8}},
     "IVdsSwProvider"},
    {{0x3B69D7F5, 0x9D94, 0x4648, {0x91, 0xCA, 0x79, 0x93, 0x9B, 0xA2, 0x63, 0xBF}}, "IVdsPack"},
    {{0x07E5C822, 0xF00C, 0x47A1, {0x8F, 0xCE, 0xB2, 0x44, 0xDA, 0x56, 0xFD, 0x06}}, "IVdsDisk"},
    {{0x6E6F6B40, 0x977C, 0x4069, {0xBD, 0xDD, 0xAC, 0x71, 0x00, 0x59, 0xF8, 0xC0}},
     "IVdsAdvancedDisk"},
    {{0x90681B1D, 0x6A7F, 0x48E8, {0x90, 0x61, 0x31, 0xB7, 0xAA, 0x12, 0x53, 0x22}},
     "IVdsDiskOnline"},
};

// --- functions ---

HRESULT WINAPI InitializeSecurity(PSECURITY_DESCRIPTOR descriptor, LONG service_count,
                                  SOLE_AUTHENTICATION_SERVICE* services, void* reserved,
                                  DWORD authentication, DWORD impersonation, void* list,
                                  DWORD capabilities, void* reserved_too)
{
    Platform& platform = Platform::Active();
    const HRESULT result = platform.NextAnswer("CoInitializeSecurity");
    platform.Record(
        Format("CoInitializeSecurity(%s, %ld, %s, %s, %lu, %lu, %s, 0x%lX, %s) -> %08X",
               platform.ShowPointer(descriptor).c_str(), service_count,
               platform.ShowPointer(services).c_str(), platform.ShowPointer(reserved).c_str(),
               authentication, impersonation, platform.ShowPointer(list).c_str(), capabilities,
               platform.ShowPointer(reserved_too).c_str(), static_cast<unsigned>(result)));
    return result;
}

HRESULT WINAPI CreateInstance(REFCLSID class_id, IUnknown* outer, DWORD context,
                              REFIID interface_id, void** object)
{
    Platform& platform = Platform::Active();
    const HRESULT result = platform.NextAnswer("CoCreateInstance");
    platform.Record(Format("CoCreateInstance(%s, %s, 0x%lX, %s) -> %08X", NameOf(class_id).c_str(),
                           platform.ShowPointer(outer).c_str(), context,
                           NameOf(interface_id).c_str(), static_cast<unsigned>(result)));
    DiskService* service = DiskService::Active();
    if (!service) {
        ADD_FAILURE() << "CoCreateInstance without a scripted service";
        return E_NOTIMPL;
    }
    service->Give<void>(object, "loader", result, [&] { return service->MakeLoader(); });
    return result;
}

void WINAPI Uninitialize()
{
    Platform::Active().Record("CoUninitialize");
}

int __cdecl CompareNames(const wchar_t* left, const wchar_t* right, size_t count)
{
    Platform& platform = Platform::Active();
    platform.Record(Format("_wcsnicmp(%s, %s, %u)", platform.Show(left).c_str(),
                           platform.Show(right).c_str(), static_cast<unsigned>(count)));
    return _wcsnicmp(left, right, count);
}

const Doubles doubles{
    {"CoInitializeSecurity", InitializeSecurity},
    {"CoCreateInstance", CreateInstance},
    {"CoUninitialize", Uninitialize},
    {"_wcsnicmp", CompareNames},
};

} // namespace

std::string NameOf(REFGUID id)
{
    for (const Identifier& known : identifiers)
        if (IsEqualGUID(known.id, id))
            return known.name;
    return "another identifier";
}

} // namespace kestro::test
