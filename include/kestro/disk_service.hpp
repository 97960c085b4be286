// disk_service.hpp - the Virtual Disk Service itself: whether it can be had, and what it says of a disk.
#ifndef KESTRO_DISK_SERVICE_HPP
#define KESTRO_DISK_SERVICE_HPP

#include "report.hpp"

#include <chrono>
#include <cstdint>
#include <cwchar>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <windows.h>

#include <objbase.h>

#include <winsvc.h>

namespace kestro {

// How long the service may take to become ready; on a machine with many disks that is a while.
constexpr std::chrono::milliseconds kDiskServicePatience{60000};

constexpr std::int32_t kDiskPartiallyCleaned = 0x0004241A; // a success code
constexpr std::int32_t kDiskNotEmpty = static_cast<std::int32_t>(0x80042414);

namespace detail::vds {

constexpr CLSID kLoaderClass = {
    0x9c38ed61, 0xd565, 0x4728, {0xae, 0xee, 0xc8, 0x09, 0x52, 0xf0, 0xec, 0xde}};

struct DiskProperties {
    GUID id;
    DWORD status, reserveMode, health, deviceType, mediaType;
    ULONGLONG size;
    ULONG bytesPerSector, sectorsPerTrack, tracksPerCylinder, flags;
    DWORD busType, partitionStyle; // 0: neither MBR nor GPT
    GUID diskGuid;
    wchar_t *address, *name, *friendlyName, *adaptorName, *devicePath;
};
static_assert(sizeof(DiskProperties) == 128);

// The methods up to the last one that is called here. Other modules' objects: never destroyed here.
struct Enumeration : IUnknown {
    static constexpr IID kId = {
        0x118610b7, 0x8d94, 0x4030, {0xb5, 0xb8, 0x50, 0x08, 0x89, 0x78, 0x8e, 0x4e}};
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, IUnknown** objects, ULONG* fetched) = 0;
};
struct Disk : IUnknown {
    static constexpr IID kId = {
        0x07e5c822, 0xf00c, 0x47a1, {0x8f, 0xce, 0xb2, 0x44, 0xda, 0x56, 0xfd, 0x06}};
    virtual HRESULT STDMETHODCALLTYPE GetProperties(DiskProperties* properties) = 0;
};
struct Pack : IUnknown {
    static constexpr IID kId = {
        0x3b69d7f5, 0x9d94, 0x4648, {0x91, 0xca, 0x79, 0x93, 0x9b, 0xa2, 0x63, 0xbf}};
    virtual HRESULT STDMETHODCALLTYPE GetProperties(void* properties) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProvider(IUnknown** provider) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryVolumes(Enumeration** volumes) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryDisks(Enumeration** disks) = 0;
};
struct SoftwareProvider : IUnknown {
    static constexpr IID kId = {
        0x9aa58360, 0xce33, 0x4f92, {0xb6, 0x58, 0xed, 0x24, 0xb1, 0x44, 0x25, 0xb8}};
    virtual HRESULT STDMETHODCALLTYPE QueryPacks(Enumeration** packs) = 0;
};
struct Service : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE IsServiceReady() = 0;
    virtual HRESULT STDMETHODCALLTYPE WaitForServiceReady() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProperties(void* properties) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryProviders(DWORD masks, Enumeration** providers) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryMaskedDisks(Enumeration** disks) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryUnallocatedDisks(Enumeration** disks) = 0;
};
struct Loader : IUnknown {
    static constexpr IID kId = {
        0xe0393303, 0x90d4, 0x4a97, {0xab, 0x71, 0xe9, 0xb6, 0x71, 0xee, 0x27, 0x29}};
    virtual HRESULT STDMETHODCALLTYPE LoadService(wchar_t* machine, Service** service) = 0;
};

struct Releaser {
    void operator()(IUnknown* object) const { object->Release(); }
};
template <class Interface>
using Owned = std::unique_ptr<Interface, Releaser>;

// An object that a method hands out, or the failure of the method named.
template <class Interface, class Call>
Owned<Interface> Get(const char* method, const Call& call)
{
    Interface* object = nullptr;
    const HRESULT result = call(&object);
    if (FAILED(result) || object == nullptr)
        throw Failure{method, FAILED(result) ? result : E_POINTER};
    return Owned<Interface>(object);
}

template <class Interface>
Owned<Interface> As(IUnknown& object)
{
    return Get<Interface>("QueryInterface", [&](Interface** as) {
        return object.QueryInterface(Interface::kId, reinterpret_cast<void**>(as));
    });
}

// As kestro.h says of the disk functions: what is asked for here must not take away what they ask for.
inline void SetSecurity()
{
    static_cast<void>(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE,
                                           RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE,
                                           nullptr));
}

inline Owned<Service> ReadyService()
{
    SetSecurity();
    const auto loader = Get<Loader>("CoCreateInstance", [](Loader** object) {
        return CoCreateInstance(kLoaderClass, nullptr, CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
                                Loader::kId, reinterpret_cast<void**>(object));
    });
    auto service = Get<Service>("IVdsServiceLoader::LoadService", [&](Service** object) {
        return loader->LoadService(nullptr, object);
    });
    const HRESULT ready = service->WaitForServiceReady();
    if (FAILED(ready))
        throw Failure{"IVdsService::WaitForServiceReady", ready};
    return service;
}

// Calls with each object until that says no.
template <class Interface>
bool Each(Enumeration& objects, const std::function<bool(Interface&)>& call)
{
    for (;;) {
        IUnknown* object = nullptr;
        ULONG fetched = 0;
        const HRESULT result = objects.Next(1, &object, &fetched);
        if (FAILED(result))
            throw Failure{"IEnumVdsObject::Next", result};
        if (object == nullptr)
            return true;
        const Owned<IUnknown> owned(object);
        if (!call(*As<Interface>(*object)))
            return false;
    }
}

// The unallocated disks, then those of the packs.
inline void EachDisk(Service& service, const std::function<bool(Disk&)>& call)
{
    if (!Each<Disk>(
            *Get<Enumeration>("IVdsService::QueryUnallocatedDisks",
                              [&](Enumeration** to) { return service.QueryUnallocatedDisks(to); }),
            call))
        return;
    const auto ofPack = [&](Pack& pack) {
        return Each<Disk>(*Get<Enumeration>("IVdsPack::QueryDisks",
                                            [&](Enumeration** to) { return pack.QueryDisks(to); }),
                          call);
    };
    const auto ofProvider = [&](SoftwareProvider& provider) {
        return Each<Pack>(
            *Get<Enumeration>("IVdsSwProvider::QueryPacks",
                              [&](Enumeration** to) { return provider.QueryPacks(to); }),
            ofPack);
    };
    constexpr DWORD software = 1;
    Each<SoftwareProvider>(
        *Get<Enumeration>("IVdsService::QueryProviders",
                          [&](Enumeration** to) { return service.QueryProviders(software, to); }),
        ofProvider);
}

// Runs something on a thread with COM of its own, for so long; a thread that does not come back is left alone.
template <class Result>
Result OnThread(std::chrono::milliseconds limit, const std::function<Result()>& work)
{
    auto task = std::make_shared<std::packaged_task<Result()>>([work] {
        const HRESULT initialised = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        struct Uninitialise {
            ~Uninitialise() { CoUninitialize(); }
        };
        if (FAILED(initialised))
            throw Failure{"CoInitializeEx", initialised};
        const Uninitialise atEnd;
        return work();
    });
    std::future<Result> done = task->get_future();
    std::thread thread([task] { (*task)(); });
    if (done.wait_for(limit) != std::future_status::ready) {
        thread.detach();
        throw Failure{"IVdsService::WaitForServiceReady",
                      static_cast<std::int32_t>(HRESULT_FROM_WIN32(ERROR_TIMEOUT))};
    }
    thread.join();
    return done.get();
}

// What the service manager knows: that there is no such service, or that nobody may start it.
inline std::optional<Failure> RefusedByManager()
{
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (manager == nullptr)
        return {};
    std::optional<Failure> failure;
    SC_HANDLE service = OpenServiceW(manager, L"vds", SERVICE_QUERY_CONFIG);
    if (service == nullptr && GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST)
        failure =
            Failure{"OpenService",
                    static_cast<std::int32_t>(HRESULT_FROM_WIN32(ERROR_SERVICE_DOES_NOT_EXIST))};
    alignas(QUERY_SERVICE_CONFIGW) BYTE bytes[8192];
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes);
    DWORD needed = 0;
    if (service != nullptr && QueryServiceConfigW(service, config, sizeof bytes, &needed) &&
        config->dwStartType == SERVICE_DISABLED)
        failure = Failure{"QueryServiceConfig",
                          static_cast<std::int32_t>(HRESULT_FROM_WIN32(ERROR_SERVICE_DISABLED))};
    if (service != nullptr)
        CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return failure;
}

// The disk's partition style; nothing without such a disk.
inline std::optional<DWORD> StyleOf(const std::wstring& name)
{
    std::optional<DWORD> style;
    const auto service = ReadyService();
    EachDisk(*service, [&](Disk& disk) {
        DiskProperties properties = {};
        if (FAILED(disk.GetProperties(&properties)))
            return true;
        // As the disk functions match names.
        if (properties.name != nullptr && _wcsnicmp(name.c_str(), properties.name, 40) == 0)
            style = properties.partitionStyle;
        for (wchar_t* text : {properties.address, properties.name, properties.friendlyName,
                              properties.adaptorName, properties.devicePath})
            CoTaskMemFree(text);
        return !style;
    });
    return style;
}

} // namespace detail::vds

// Has the service started, where it is not, and waits until it is ready, as its documentation asks of its
// clients; the disk functions themselves do not. A failure says why there is none.
inline std::optional<Failure>
AwaitDiskService(std::chrono::milliseconds limit = kDiskServicePatience)
{
    if (auto refused = detail::vds::RefusedByManager())
        return refused;
    try {
        detail::vds::OnThread<bool>(limit, [] { return detail::vds::ReadyService() != nullptr; });
        return {};
    } catch (const Failure& failure) {
        return failure;
    }
}

// Looks at a disk that was cleaned: a service that died meanwhile may have left the impression of a success.
// What is wrong, or nothing. The service may take a moment to see its own work.
inline std::optional<Failure> CheckCleaned(const std::wstring& disk,
                                           std::chrono::milliseconds limit = kDiskServicePatience)
{
    constexpr int looks = 25;
    constexpr std::chrono::milliseconds pause{200};
    try {
        for (int look = 1;; ++look) {
            const auto style = detail::vds::OnThread<std::optional<DWORD>>(
                limit, [disk] { return detail::vds::StyleOf(disk); });
            if (style == 0u)
                return {};
            if (look == looks)
                return Failure{"CleanDisk",
                               style ? kDiskNotEmpty : static_cast<std::int32_t>(0x80042405)};
            std::this_thread::sleep_for(pause);
        }
    } catch (const Failure& failure) {
        return failure;
    }
}

} // namespace kestro

#endif
