// quiet_disks.cpp - a disk service with one unallocated disk and one in a pack, that counts the
// references to its objects.
#include "soak/quiet_platform.h"

#include "support/disk_service_tables.h"

#include <vds_interfaces.h>

namespace kestro::test {

namespace {

enum class Kind {
    loader,
    service,
    disks,
    providers,
    packs,
    pack_disks,
    provider,
    software_provider,
    pack,
    disk,
    other_disk,
    advanced_disk,
    async,
    disk_online
};

// An object with one interface.
struct Object {
    void* const* slots;
    Kind kind;
    bool given = false; // of an enumerator: its one object
};

HRESULT Give(Kind kind, void** slot);

HRESULT WINAPI QueryInterface(Object* self, const IID* wanted, void** slot)
{
    const HRESULT result = QuietCall::Active().NextResult();
    if (FAILED(result))
        return result;
    if (*wanted == __uuidof(IVdsSwProvider))
        return Give(Kind::software_provider, slot);
    if (*wanted == __uuidof(IVdsAdvancedDisk))
        return Give(Kind::advanced_disk, slot);
    if (*wanted == __uuidof(IVdsDiskOnline))
        return Give(Kind::disk_online, slot);
    ++QuietCall::Active().counts.objects;
    *slot = self;
    return S_OK;
}

ULONG WINAPI AddRef(Object*)
{
    return static_cast<ULONG>(++QuietCall::Active().counts.objects);
}

ULONG WINAPI Release(Object*)
{
    return static_cast<ULONG>(--QuietCall::Active().counts.objects);
}

HRESULT Answer(Kind kind, void** slot)
{
    const HRESULT result = QuietCall::Active().NextResult();
    return FAILED(result) ? result : Give(kind, slot);
}

HRESULT WINAPI LoadService(Object*, LPWSTR, void** service)
{
    return Answer(Kind::service, service);
}

HRESULT WINAPI QueryUnallocatedDisks(Object*, void** enumerator)
{
    return Answer(Kind::disks, enumerator);
}

HRESULT WINAPI QueryProviders(Object*, DWORD, void** enumerator)
{
    return Answer(Kind::providers, enumerator);
}

HRESULT WINAPI QueryPacks(Object*, void** enumerator)
{
    return Answer(Kind::packs, enumerator);
}

HRESULT WINAPI QueryDisks(Object*, void** enumerator)
{
    return Answer(Kind::pack_disks, enumerator);
}

Kind ItemOf(Kind enumerator)
{
    switch (enumerator) {
    case Kind::providers:
        return Kind::provider;
    case Kind::packs:
        return Kind::pack;
    case Kind::pack_disks:
        return Kind::other_disk;
    default:
        return Kind::disk;
    }
}

HRESULT WINAPI Next(Object* self, ULONG, void** slot, ULONG* fetched)
{
    const HRESULT result = QuietCall::Active().NextResult();
    *fetched = 0;
    if (FAILED(result) || self->given)
        return FAILED(result) ? result : S_FALSE;
    self->given = true;
    *fetched = 1;
    return Give(ItemOf(self->kind), slot);
}

// A string that is the caller's from now on; it lives as long as the call's account.
wchar_t* GiveString(const wchar_t* text)
{
    QuietCall& call = QuietCall::Active();
    ++call.counts.strings;
    return call.Keep(std::make_shared<std::wstring>(text))->data();
}

HRESULT WINAPI DiskProperties(Object* self, VDS_DISK_PROP* properties)
{
    const HRESULT result = QuietCall::Active().NextResult();
    if (FAILED(result))
        return result;
    properties->pwszName = GiveString(self->kind == Kind::disk ? unallocated_disk : pack_disk);
    properties->pwszDiskAddress = GiveString(L"Port0");
    properties->pwszFriendlyName = GiveString(L"Disk");
    properties->pwszAdaptorName = GiveString(L"Adaptor");
    properties->pwszDevicePath = GiveString(L"Path");
    return result;
}

HRESULT WINAPI ProviderProperties(Object*, VDS_PROVIDER_PROP* properties)
{
    const HRESULT result = QuietCall::Active().NextResult();
    if (FAILED(result))
        return result;
    properties->pwszName = GiveString(L"Provider");
    properties->pwszVersion = GiveString(L"1.0");
    return result;
}

HRESULT WINAPI PackProperties(Object*, VDS_PACK_PROP* properties)
{
    const HRESULT result = QuietCall::Active().NextResult();
    if (SUCCEEDED(result))
        properties->pwszName = GiveString(L"Pack");
    return result;
}

HRESULT WINAPI Plain(Object*)
{
    return QuietCall::Active().NextResult();
}

HRESULT WINAPI Clean(Object*, BOOL, BOOL, BOOL, void** async)
{
    return Answer(Kind::async, async);
}

HRESULT WINAPI Wait(Object*, HRESULT* delivered, VDS_ASYNC_OUTPUT*)
{
    *delivered = QuietCall::Active().NextResult();
    return S_OK;
}

template <typename Function>
void* Address(Function* function)
{
    return reinterpret_cast<void*>(function);
}

const DiskServiceTables::Table& TableOf(Kind kind)
{
    static const DiskServiceTables tables({
        .QueryInterface = Address(QueryInterface),
        .AddRef = Address(AddRef),
        .Release = Address(Release),
        .LoadService = Address(LoadService),
        .QueryProviders = Address(QueryProviders),
        .QueryUnallocatedDisks = Address(QueryUnallocatedDisks),
        .Next = Address(Next),
        .ProviderProperties = Address(ProviderProperties),
        .QueryPacks = Address(QueryPacks),
        .PackProperties = Address(PackProperties),
        .QueryDisks = Address(QueryDisks),
        .DiskProperties = Address(DiskProperties),
        .Clean = Address(Clean),
        .Wait = Address(Wait),
        .Online = Address(Plain),
        .Offline = Address(Plain),
    });
    switch (kind) {
    case Kind::loader:
        return tables.loader;
    case Kind::service:
        return tables.service;
    case Kind::provider:
        return tables.provider;
    case Kind::software_provider:
        return tables.software_provider;
    case Kind::pack:
        return tables.pack;
    case Kind::disk:
    case Kind::other_disk:
        return tables.disk;
    case Kind::advanced_disk:
        return tables.advanced_disk;
    case Kind::async:
        return tables.async;
    case Kind::disk_online:
        return tables.disk_online;
    default:
        return tables.enumerator;
    }
}

// A new object with one reference.
HRESULT Give(Kind kind, void** slot)
{
    QuietCall& call = QuietCall::Active();
    ++call.counts.objects;
    *slot = call.Keep(std::make_shared<Object>(Object{TableOf(kind).data(), kind}));
    return S_OK;
}

} // namespace

HRESULT CreateQuietLoader(void** loader)
{
    return Give(Kind::loader, loader);
}

} // namespace kestro::test
