// main.cpp - vds.exe: started by COM when somebody asks for the loader, ended when idle.
#include "disk_list.h"
#include "server.h"
#include "service_objects.h"

#include <windows.h>

#include <objbase.h>

namespace {

constexpr CLSID kLoaderClass = {
    0x9c38ed61, 0xd565, 0x4728, {0xae, 0xee, 0xc8, 0x09, 0x52, 0xf0, 0xec, 0xde}};

} // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int)
{
    using namespace kestro::vds;

    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    DWORD registration = 0;
    // One process for each client. Wine does not notice that a server died: with a registration for
    // many clients, every later one would be sent to the dead process.
    const HRESULT result = CoRegisterClassObject(
        kLoaderClass, NewLoaderFactory(), CLSCTX_LOCAL_SERVER, REGCLS_SINGLEUSE, &registration);
    if (FAILED(result)) {
        Log(L"the service cannot be registered");
        return 1;
    }
    Log(L"the disk service is running");
    ServerActivity::WaitUntilIdle();
    CoRevokeClassObject(registration);
    Log(L"the disk service has ended");
    CoUninitialize();
    return 0;
}
