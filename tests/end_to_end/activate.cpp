// activate.cpp - a client of the disk service:
//
//   activate COUNT   asks for the service so many times, one after another; says how long that took
//   activate hold    keeps the service, and asks it for its disks for each line of standard input
//   activate disable, activate enable   nobody may start it; as it was
//   activate NAME    looks whether that disk is as a clean leaves it, as the companion does
#include "kestro.hpp"

#include <windows.h>

#include <objbase.h>
#include <vds_interfaces.h>

#include <winsvc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr CLSID kLoader = {
    0x9c38ed61, 0xd565, 0x4728, {0xae, 0xee, 0xc8, 0x09, 0x52, 0xf0, 0xec, 0xde}};

HRESULT Load(IVdsService** service)
{
    IVdsServiceLoader* loader = nullptr;
    HRESULT result =
        CoCreateInstance(kLoader, nullptr, CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
                         __uuidof(IVdsServiceLoader), reinterpret_cast<void**>(&loader));
    if (FAILED(result))
        return result;
    result = loader->LoadService(nullptr, service);
    loader->Release();
    return result;
}

HRESULT AskForDisks(IVdsService* service)
{
    IEnumVdsObject* disks = nullptr;
    const HRESULT result = service->QueryUnallocatedDisks(&disks);
    if (SUCCEEDED(result))
        disks->Release();
    return result;
}

int Activate(int count)
{
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::duration<double, std::milli>;
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        const auto start = Clock::now();
        IVdsService* service = nullptr;
        HRESULT result = Load(&service);
        if (SUCCEEDED(result))
            result = AskForDisks(service);
        if (FAILED(result)) {
            std::printf("activation %d failed: %08lX\n", i + 1, static_cast<unsigned long>(result));
            return 1;
        }
        service->Release();
        times.push_back(Milliseconds(Clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    std::printf("%d activations: median %.1f ms, slowest %.1f ms\n", count, times[times.size() / 2],
                times.back());
    return 0;
}

int Hold()
{
    IVdsService* service = nullptr;
    const HRESULT result = Load(&service);
    std::printf("%08lX\n", static_cast<unsigned long>(result));
    std::fflush(stdout);
    char line[16];
    while (SUCCEEDED(result) && std::fgets(line, sizeof line, stdin) != nullptr) {
        std::printf("%08lX\n", static_cast<unsigned long>(AskForDisks(service)));
        std::fflush(stdout);
    }
    return 0; // and leaves the service to whoever cleans up after it
}

int SetStartType(DWORD type)
{
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = OpenServiceW(manager, L"vds", SERVICE_CHANGE_CONFIG);
    const bool set =
        ChangeServiceConfigW(service, SERVICE_NO_CHANGE, type, SERVICE_NO_CHANGE, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr, nullptr) != FALSE;
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return set ? 0 : 1;
}

int Look(const char* name)
{
    const auto failure = kestro::CheckCleaned(kestro::detail::Wide(name, CP_UTF8));
    std::printf("%08lX\n", failure ? static_cast<unsigned long>(failure->hresult) : 0);
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const char* const what = argc == 2 ? argv[1] : "";
    if (std::strcmp(what, "disable") == 0)
        return SetStartType(SERVICE_DISABLED);
    if (std::strcmp(what, "enable") == 0)
        return SetStartType(SERVICE_DEMAND_START);
    if (*what == '\\')
        return Look(what);
    if (*what == 0 || FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 2;
    return std::strcmp(what, "hold") == 0 ? Hold() : Activate(std::atoi(what));
}
