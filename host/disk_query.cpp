// disk_query.cpp - the disks of this machine, as the disk service tells of them.
#include "disk_query.h"

#include "kestro.hpp"

#include <future>
#include <utility>

#include <objbase.h>

#include "vds_interfaces.h"

namespace kestro::host {
namespace {

constexpr CLSID kLoader = {
    0x9c38ed61, 0xd565, 0x4728, {0xae, 0xee, 0xc8, 0x09, 0x52, 0xf0, 0xec, 0xde}};

void Must(const char* function, HRESULT result)
{
    if (FAILED(result))
        throw DiskServiceError(function, result);
}

// Owns one reference.
template <class T>
class Owned {
  public:
    Owned() = default;
    Owned(Owned&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    ~Owned()
    {
        if (object_ != nullptr)
            object_->Release();
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    T** To() { return &object_; }
    T* operator->() const { return object_; }
    T* Get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

    template <class Other>
    Owned<Other> As() const
    {
        Owned<Other> other;
        Must("QueryInterface",
             object_->QueryInterface(__uuidof(Other), reinterpret_cast<void**>(other.To())));
        return other;
    }

  private:
    T* object_ = nullptr;
};

// A text of a record, which is the caller's.
std::string Taken(wchar_t*& text)
{
    std::string taken = detail::TextOf(text);
    CoTaskMemFree(std::exchange(text, nullptr));
    return taken;
}

const char* StateOf(VDS_DISK_STATUS status)
{
    switch (status) {
    case VDS_DS_ONLINE:
        return "online";
    case VDS_DS_NOT_READY:
        return "not ready";
    case VDS_DS_NO_MEDIA:
        return "no media";
    case VDS_DS_OFFLINE:
        return "offline";
    case VDS_DS_FAILED:
        return "failed";
    case VDS_DS_MISSING:
        return "missing";
    default:
        return "unknown";
    }
}

DiskDetails DetailsOf(const Owned<IVdsDisk>& disk, const std::string& provider,
                      const std::string& pack)
{
    VDS_DISK_PROP record = {};
    Must("IVdsDisk::GetProperties", disk->GetProperties(&record));
    DiskDetails details;
    details.provider = provider;
    details.pack = pack;
    details.size = record.ullSize;
    details.sectorSize = record.ulBytesPerSector;
    details.style = record.PartitionStyle == VDS_PST_MBR   ? "MBR"
                    : record.PartitionStyle == VDS_PST_GPT ? "GPT"
                                                           : "-";
    details.state = StateOf(record.status);
    details.healthy = record.health == VDS_H_HEALTHY || record.health == VDS_H_UNKNOWN;
    details.readOnly = (record.ulFlags & VDS_DF_READ_ONLY) != 0;
    details.system = (record.ulFlags & VDS_DF_SYSTEM_DISK) != 0;
    details.boot = (record.ulFlags & VDS_DF_BOOT_DISK) != 0;
    details.name = Taken(record.pwszName);
    details.friendlyName = Taken(record.pwszFriendlyName);
    for (wchar_t** text :
         {&record.pwszDiskAddress, &record.pwszAdaptorName, &record.pwszDevicePath})
        Taken(*text);
    return details;
}

// Calls with each object that the enumeration gives.
template <class T, class Call>
void ForEach(const Owned<IEnumVdsObject>& objects, const Call& call)
{
    if (!objects)
        return;
    for (;;) {
        Owned<IUnknown> object;
        ULONG count = 0;
        Must("IEnumVdsObject::Next", objects->Next(1, object.To(), &count));
        if (count == 0 || !object)
            return;
        call(object.As<T>());
    }
}

class DiskQuery {
  public:
    std::vector<DiskDetails> Run()
    {
        Owned<IVdsServiceLoader> loader;
        Must("CoCreateInstance",
             CoCreateInstance(kLoader, nullptr, CLSCTX_LOCAL_SERVER, __uuidof(IVdsServiceLoader),
                              reinterpret_cast<void**>(loader.To())));
        Owned<IVdsService> service;
        Must("IVdsServiceLoader::LoadService", loader->LoadService(nullptr, service.To()));
        Must("IVdsService::WaitForServiceReady", service->WaitForServiceReady());
        Owned<IEnumVdsObject> free;
        Must("IVdsService::QueryUnallocatedDisks", service->QueryUnallocatedDisks(free.To()));
        Add(free, "", "");
        Owned<IEnumVdsObject> providers;
        Must("IVdsService::QueryProviders",
             service->QueryProviders(VDS_QUERY_SOFTWARE_PROVIDERS, providers.To()));
        ForEach<IVdsProvider>(providers,
                              [&](const Owned<IVdsProvider>& provider) { AddProvider(provider); });
        return std::move(disks_);
    }

  private:
    void Add(const Owned<IEnumVdsObject>& objects, const std::string& provider,
             const std::string& pack)
    {
        ForEach<IVdsDisk>(objects, [&](const Owned<IVdsDisk>& disk) {
            disks_.push_back(DetailsOf(disk, provider, pack));
        });
    }

    void AddProvider(const Owned<IVdsProvider>& provider)
    {
        VDS_PROVIDER_PROP record = {};
        Must("IVdsProvider::GetProperties", provider->GetProperties(&record));
        const std::string name = Taken(record.pwszName);
        Taken(record.pwszVersion);
        Owned<IEnumVdsObject> packs;
        Must("IVdsSwProvider::QueryPacks", provider.As<IVdsSwProvider>()->QueryPacks(packs.To()));
        ForEach<IVdsPack>(packs, [&](const Owned<IVdsPack>& pack) {
            VDS_PACK_PROP packRecord = {};
            Must("IVdsPack::GetProperties", pack->GetProperties(&packRecord));
            // A pack of basic disks need not have a name.
            const std::string packName = Taken(packRecord.pwszName);
            Owned<IEnumVdsObject> packDisks;
            Must("IVdsPack::QueryDisks", pack->QueryDisks(packDisks.To()));
            Add(packDisks, name, packName);
        });
    }

    std::vector<DiskDetails> disks_;
};

} // namespace

std::string DiskDetails::CleanRefusal() const
{
    if (state != "online")
        return state;
    if (readOnly)
        return "read-only";
    if (boot)
        return "holds the boot volume";
    if (system)
        return "holds the system volume";
    return "";
}

std::vector<DiskDetails> QueryDisks()
{
    return std::async(std::launch::async,
                      [] {
                          Must("CoInitializeEx", CoInitializeEx(nullptr, COINIT_MULTITHREADED));
                          struct Uninitialise {
                              ~Uninitialise() { CoUninitialize(); }
                          } const atEnd;
                          // The service acts in its client's name; once a process has decided that, it stays.
                          CoInitializeSecurity(nullptr, -1, nullptr, nullptr,
                                               RPC_C_AUTHN_LEVEL_CONNECT,
                                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, 0, nullptr);
                          return DiskQuery().Run();
                      })
        .get();
}

} // namespace kestro::host
