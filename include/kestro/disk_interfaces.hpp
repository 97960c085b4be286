// disk_interfaces.hpp - the Virtual Disk Service as COM gives it: its interfaces, as far as they are called here,
// and the way to each disk.
#ifndef KESTRO_DISK_INTERFACES_HPP
#define KESTRO_DISK_INTERFACES_HPP

#include "report.hpp"

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include <windows.h>

#include <objbase.h>

namespace kestro {

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

struct PackProperties {
    GUID id;
    wchar_t* name;
    DWORD status;
    ULONG flags;
};
struct ProviderProperties {
    GUID id;
    wchar_t* name;
    GUID versionId;
    wchar_t* version;
    DWORD type;
    ULONG flags, stripeSizeFlags;
    SHORT rebuildPriority;
};
struct DiskExtent {
    GUID diskId;
    DWORD type;
    ULONGLONG offset, size;
    GUID volumeId, plexId;
    ULONG memberIndex;
};
static_assert(sizeof(PackProperties) == 32 && sizeof(ProviderProperties) == 64 &&
              sizeof(DiskExtent) == 80);

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
    virtual HRESULT STDMETHODCALLTYPE GetPack(IUnknown** pack) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetIdentificationData(void* data) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryExtents(DiskExtent** extents, LONG* count) = 0;
};
struct Pack : IUnknown {
    static constexpr IID kId = {
        0x3b69d7f5, 0x9d94, 0x4648, {0x91, 0xca, 0x79, 0x93, 0x9b, 0xa2, 0x63, 0xbf}};
    virtual HRESULT STDMETHODCALLTYPE GetProperties(PackProperties* properties) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetProvider(IUnknown** provider) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryVolumes(Enumeration** volumes) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryDisks(Enumeration** disks) = 0;
};
struct Provider : IUnknown {
    static constexpr IID kId = {
        0x10c5e575, 0x7984, 0x4e81, {0xa5, 0x6b, 0x43, 0x1f, 0x5f, 0x92, 0xae, 0x42}};
    virtual HRESULT STDMETHODCALLTYPE GetProperties(ProviderProperties* properties) = 0;
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

// A text of a record, which is the caller's.
inline std::wstring Taken(wchar_t*& text)
{
    std::wstring taken = text != nullptr ? text : L"";
    CoTaskMemFree(std::exchange(text, nullptr));
    return taken;
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

// Where a disk is; an unallocated one is nowhere.
struct Place {
    SoftwareProvider* provider = nullptr;
    Pack* pack = nullptr;
};

// The unallocated disks, then those of the packs, until the call says no.
inline void EachDisk(Service& service, const std::function<bool(Disk&, const Place&)>& call)
{
    const auto at = [&](const Place& place) {
        return [&call, place](Disk& disk) { return call(disk, place); };
    };
    if (!Each<Disk>(
            *Get<Enumeration>("IVdsService::QueryUnallocatedDisks",
                              [&](Enumeration** to) { return service.QueryUnallocatedDisks(to); }),
            at({})))
        return;
    const auto ofProvider = [&](SoftwareProvider& provider) {
        const auto ofPack = [&](Pack& pack) {
            return Each<Disk>(
                *Get<Enumeration>("IVdsPack::QueryDisks",
                                  [&](Enumeration** to) { return pack.QueryDisks(to); }),
                at({&provider, &pack}));
        };
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

} // namespace detail::vds

} // namespace kestro

#endif
