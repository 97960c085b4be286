// main.cpp - vds.exe: started by the service manager when a client asks for the loader; with --register, makes
// its entries in the prefix.
#include "class_registration.h"
#include "disk_list.h"
#include "kept_stubs.h"
#include "operations.h"
#include "service_names.h"
#include "service_objects.h"
#include "set_up.h"

#include <windows.h>

#include <objbase.h>

#include <winsvc.h>

#include <cstring>

namespace {

using namespace kestro::vds;

SERVICE_STATUS_HANDLE g_status;
HANDLE g_stop;

void Report(DWORD state, DWORD error = NO_ERROR)
{
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted =
        state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
    status.dwWin32ExitCode = error;
    status.dwWaitHint = 30000;
    SetServiceStatus(g_status, &status);
}

DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*)
{
    if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(g_stop);
    }
    return NO_ERROR;
}

void WINAPI Serve(DWORD, wchar_t**)
{
    g_status = RegisterServiceCtrlHandlerExW(kServiceName, OnControl, nullptr);
    if (g_status == nullptr)
        return;
    Report(SERVICE_START_PENDING);
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) || !PublishLoader(LoaderFactory())) {
        Log(L"the service cannot make itself known");
        Report(SERVICE_STOPPED, ERROR_SERVICE_SPECIFIC_ERROR);
        return;
    }
    KeepStubs();
    Log(L"the disk service is running");
    Report(SERVICE_RUNNING);
    WaitForSingleObject(g_stop, INFINITE);
    RunningOperation::WaitForAll();
    Log(L"the disk service has ended");
    Report(SERVICE_STOPPED);
}

} // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR arguments, int)
{
    if (std::strcmp(arguments, "--register") == 0)
        return SetUp();
    g_stop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    wchar_t name[] = L"vds";
    const SERVICE_TABLE_ENTRYW services[] = {{name, Serve}, {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherW(services))
        return 1;
    // Also when the prefix ends without asking the service to.
    RunningOperation::WaitForAll();
    return 0;
}
