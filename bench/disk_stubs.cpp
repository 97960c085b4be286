// disk_stubs.cpp - the disk service's objects: one of each, always the same, that count no references.
#include "disk_stubs.h"

#include "recording.h"
#include "support/disk_service_tables.h"

#include <vds_interfaces.h>

namespace kestro::bench {
namespace {

struct Object {
    void* const* table = nullptr;
    Object* gives = nullptr;       // of an enumerator
    bool given = false;            // its one object
    const wchar_t* name = nullptr; // of a disk
};

struct Service {
    Object loader, service, disks, providers, packs, packDisks;
    Object provider, softwareProvider, pack, disk, packDisk, advancedDisk, async, diskOnline;
    Service();
};
Service g_service;

HRESULT Give(Object& object, void** slot)
{
    object.given = false;
    *slot = &object;
    return S_OK;
}

HRESULT WINAPI QueryInterface(Object* self, const IID* wanted, void** slot)
{
    NoteStub(QueryInterface, self, wanted, OutOfFloor());
    if (self == &g_service.provider && *wanted == __uuidof(IVdsSwProvider))
        return Give(g_service.softwareProvider, slot);
    if (*wanted == __uuidof(IVdsAdvancedDisk))
        return Give(g_service.advancedDisk, slot);
    if (*wanted == __uuidof(IVdsDiskOnline))
        return Give(g_service.diskOnline, slot);
    return Give(*self, slot);
}
ULONG WINAPI AddRef(Object* self)
{
    NoteStub(AddRef, self);
    return 1;
}
ULONG WINAPI Release(Object* self)
{
    NoteStub(Release, self);
    return 1;
}
HRESULT WINAPI LoadService(Object* self, LPWSTR machine, void** service)
{
    NoteStub(LoadService, self, machine, OutOfFloor());
    return Give(g_service.service, service);
}
HRESULT WINAPI QueryUnallocatedDisks(Object* self, void** disks)
{
    NoteStub(QueryUnallocatedDisks, self, OutOfFloor());
    return Give(g_service.disks, disks);
}
HRESULT WINAPI QueryProviders(Object* self, DWORD mask, void** providers)
{
    NoteStub(QueryProviders, self, mask, OutOfFloor());
    return Give(g_service.providers, providers);
}
HRESULT WINAPI QueryPacks(Object* self, void** packs)
{
    NoteStub(QueryPacks, self, OutOfFloor());
    return Give(g_service.packs, packs);
}
HRESULT WINAPI QueryDisks(Object* self, void** disks)
{
    NoteStub(QueryDisks, self, OutOfFloor());
    return Give(g_service.packDisks, disks);
}
HRESULT WINAPI Next(Object* self, ULONG count, void** slot, ULONG* fetched)
{
    NoteStub(Next, self, count, OutOfFloor(), OutOfFloor());
    if (self->given)
        return S_FALSE;
    self->given = true;
    *fetched = 1;
    return Give(*self->gives, slot);
}
HRESULT WINAPI DiskProperties(Object* self, VDS_DISK_PROP* properties)
{
    NoteStub(DiskProperties, self, OutOfFloor());
    properties->pwszName = const_cast<wchar_t*>(self->name);
    return S_OK;
}
HRESULT WINAPI ProviderProperties(Object* self, VDS_PROVIDER_PROP*)
{
    NoteStub(ProviderProperties, self, OutOfFloor());
    return S_OK;
}
HRESULT WINAPI PackProperties(Object* self, VDS_PACK_PROP*)
{
    NoteStub(PackProperties, self, OutOfFloor());
    return S_OK;
}
HRESULT WINAPI Clean(Object* self, BOOL force, BOOL oem, BOOL full, void** async)
{
    NoteStub(Clean, self, force, oem, full, OutOfFloor());
    return Give(g_service.async, async);
}
HRESULT WINAPI Wait(Object* self, HRESULT* result, VDS_ASYNC_OUTPUT*)
{
    NoteStub(Wait, self, OutOfFloor(), OutOfFloor());
    *result = S_OK;
    return S_OK;
}
HRESULT WINAPI Online(Object* self)
{
    NoteStub(Online, self);
    return S_OK;
}
HRESULT WINAPI Offline(Object* self)
{
    NoteStub(Offline, self);
    return S_OK;
}

template <class Function>
void* Address(Function* function)
{
    return reinterpret_cast<void*>(function);
}

Service::Service()
{
    static const test::DiskServiceTables tables({
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
        .Online = Address(Online),
        .Offline = Address(Offline),
    });
    const auto enumerator = [&](Object& item) { return Object{tables.enumerator.data(), &item}; };
    loader.table = tables.loader.data();
    service.table = tables.service.data();
    disks = enumerator(disk);
    providers = enumerator(provider);
    packs = enumerator(pack);
    packDisks = enumerator(packDisk);
    provider.table = tables.provider.data();
    softwareProvider.table = tables.software_provider.data();
    pack.table = tables.pack.data();
    disk = {tables.disk.data(), nullptr, false, kUnallocatedDisk};
    packDisk = {tables.disk.data(), nullptr, false, kPackDisk};
    advancedDisk.table = tables.advanced_disk.data();
    async.table = tables.async.data();
    diskOnline.table = tables.disk_online.data();
}

} // namespace

HRESULT WINAPI CreateDiskService(REFCLSID classId, IUnknown* outer, DWORD context, REFIID id,
                                 void** loader)
{
    NoteStub(CreateDiskService, &classId, outer, context, &id, OutOfFloor());
    return Give(g_service.loader, loader);
}

} // namespace kestro::bench
