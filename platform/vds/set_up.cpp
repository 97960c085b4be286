// set_up.cpp - the service's entries in a prefix.
#include "set_up.h"

#include "disk_list.h"
#include "service_names.h"

#include <windows.h>

#include <string>

#include <winsvc.h>

namespace kestro::vds {
namespace {

struct Handle {
    ~Handle() { CloseServiceHandle(handle); }
    SC_HANDLE handle;
};

std::wstring OwnPath()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH - 1);
    return path;
}

void EndAndAwait(SC_HANDLE service)
{
    constexpr int pause = 20, patience = 30000; // milliseconds; a clean of hours is not waited for
    SERVICE_STATUS status = {};
    if (!ControlService(service, SERVICE_CONTROL_STOP, &status))
        return; // it does not run
    for (int waited = 0; waited < patience && QueryServiceStatus(service, &status) &&
                         status.dwCurrentState != SERVICE_STOPPED;
         waited += pause)
        Sleep(pause);
}

bool RegisterService()
{
    const Handle manager = {OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)};
    const std::wstring path = OwnPath();
    SC_HANDLE made =
        CreateServiceW(manager.handle, kServiceName, L"Kestro's disk service", SERVICE_ALL_ACCESS,
                       SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                       path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr);
    if (made == nullptr && GetLastError() == ERROR_SERVICE_EXISTS)
        made = OpenServiceW(manager.handle, kServiceName, SERVICE_ALL_ACCESS);
    if (made == nullptr)
        return false;
    const Handle service = {made};
    EndAndAwait(service.handle);
    return ChangeServiceConfigW(service.handle, SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                SERVICE_NO_CHANGE, path.c_str(), nullptr, nullptr, nullptr, nullptr,
                                nullptr, nullptr);
}

bool SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text)
{
    return RegSetKeyValueW(HKEY_LOCAL_MACHINE, (L"Software\\Classes\\" + key).c_str(), name, REG_SZ,
                           text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) ==
           ERROR_SUCCESS;
}

bool RegisterClasses()
{
    const std::wstring loader = std::wstring(L"CLSID\\") + kLoaderClassText;
    const std::wstring reference =
        std::wstring(L"CLSID\\") + kReferenceClassText + L"\\InprocServer32";
    RegDeleteTreeW(HKEY_LOCAL_MACHINE,
                   (L"Software\\Classes\\" + loader + L"\\LocalServer32").c_str());
    return SetText(loader, L"AppID", kAppIdText) &&
           SetText(std::wstring(L"AppID\\") + kAppIdText, L"LocalService", kServiceName) &&
           SetText(reference, nullptr, L"kestro_vdsclient.dll") &&
           SetText(reference, L"ThreadingModel", L"Both");
}

bool RegisterProxy()
{
    const HMODULE proxy = LoadLibraryW(L"kestro_vdsps.dll");
    if (proxy == nullptr)
        return false;
    const auto registration = reinterpret_cast<HRESULT(STDMETHODCALLTYPE*)()>(
        reinterpret_cast<void*>(GetProcAddress(proxy, "DllRegisterServer")));
    return registration != nullptr && SUCCEEDED(registration());
}

} // namespace

int SetUp()
{
    if (RegisterService() && RegisterClasses() && RegisterProxy())
        return 0;
    Log(L"the disk service cannot be registered: error " + std::to_wstring(GetLastError()));
    return 1;
}

} // namespace kestro::vds
