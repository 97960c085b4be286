// service_objects.cpp - the objects of the service: loader, service, providers, packs and disks.
#include "service_objects.h"

#include "clean_operation.h"
#include "com_object.h"
#include "disk_list.h"
#include "file_disk.h"

#include <rpc.h>

#include <rpcdcep.h>

#include <algorithm>
#include <cstring>
#include <functional>

namespace kestro::vds {
namespace {

// --- helpers ----------------------------------------------------------------------------------------

HRESULT NotSupported()
{
    return code::not_supported;
}

WCHAR* TaskString(const std::wstring& text)
{
    const std::size_t size = (text.size() + 1) * sizeof(WCHAR);
    auto* const copy = static_cast<WCHAR*>(CoTaskMemAlloc(size));
    if (copy != nullptr)
        std::memcpy(copy, text.c_str(), size);
    return copy;
}

// The same thing has the same id each time it is looked at.
GUID IdOf(const wchar_t* kind, const std::wstring& name)
{
    const std::wstring text = kind + (L"\\" + name);
    std::uint64_t halves[2] = {0xcbf29ce484222325, 0x84222325cbf29ce4};
    for (const wchar_t letter : text)
        for (std::uint64_t& half : halves)
            half = (half ^ letter) * 0x100000001b3;
    GUID id;
    std::memcpy(&id, halves, sizeof id);
    return id;
}

using Objects = std::vector<IUnknown*>; // each owns a reference

class Enumerator final : public ComObject<IEnumVdsObject> {
  public:
    explicit Enumerator(Objects objects, std::size_t next = 0)
        : objects_(std::move(objects)), next_(next)
    {
    }

    HRESULT STDMETHODCALLTYPE Next(ULONG count, IUnknown** objects, ULONG* fetched) override
    {
        if (objects == nullptr || fetched == nullptr)
            return E_INVALIDARG;
        *fetched = 0;
        for (ULONG i = 0; i < count; ++i)
            objects[i] = nullptr;
        while (*fetched < count && next_ < objects_.size()) {
            objects[*fetched] = objects_[next_++];
            objects[(*fetched)++]->AddRef();
        }
        return *fetched == count ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override
    {
        const std::size_t left = objects_.size() - next_;
        next_ += std::min<std::size_t>(count, left);
        return count <= left ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override
    {
        next_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumVdsObject** clone) override
    {
        if (clone == nullptr)
            return E_INVALIDARG;
        for (IUnknown* object : objects_)
            object->AddRef();
        *clone = new Enumerator(objects_, next_);
        return S_OK;
    }

  private:
    ~Enumerator() override
    {
        for (IUnknown* object : objects_)
            object->Release();
    }

    Objects objects_;
    std::size_t next_;
};

HRESULT Enumerate(Objects objects, IEnumVdsObject** enumerator)
{
    if (enumerator == nullptr)
        return E_INVALIDARG;
    *enumerator = new Enumerator(std::move(objects));
    return S_OK;
}

// --- disks --------------------------------------------------------------------------------------------

IUnknown* NewPack(const std::wstring& provider, const std::wstring& pack);

class Disk final : public ComObject<IVdsDisk, IVdsAdvancedDisk, IVdsDiskOnline> {
  public:
    explicit Disk(DiskEntry entry) : entry_(std::move(entry)) {}

    HRESULT STDMETHODCALLTYPE GetProperties(VDS_DISK_PROP* properties) override;
    HRESULT STDMETHODCALLTYPE GetPack(IVdsPack** pack) override
    {
        if (pack == nullptr)
            return E_INVALIDARG;
        *pack = nullptr;
        if (entry_.pack.empty())
            return code::object_not_found;
        IUnknown* const object = NewPack(entry_.provider, entry_.pack);
        const HRESULT result =
            object->QueryInterface(__uuidof(IVdsPack), reinterpret_cast<void**>(pack));
        object->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE GetIdentificationData() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE QueryExtents() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE ConvertStyle(VDS_PARTITION_STYLE) override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE SetFlags(ULONG) override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE ClearFlags(ULONG) override { return NotSupported(); }

    HRESULT STDMETHODCALLTYPE GetPartitionProperties() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE QueryPartitions() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE CreatePartition() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE DeletePartition() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE ChangeAttributes() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE AssignDriveLetter() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE DeleteDriveLetter() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE GetDriveLetter() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE FormatPartition() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE Clean(BOOL force, BOOL forceOem, BOOL full,
                                    IVdsAsync** async) override
    {
        if (async == nullptr)
            return E_INVALIDARG;
        return BeginClean(entry_, {force != FALSE, forceOem != FALSE, full != FALSE}, async);
    }

    HRESULT STDMETHODCALLTYPE Online() override { return SetOnline(true); }
    HRESULT STDMETHODCALLTYPE Offline() override { return SetOnline(false); }

  private:
    HRESULT SetOnline(bool online)
    {
        const auto current = ReadDisk(entry_.section);
        if (!current)
            return code::object_not_found;
        // A disk that is already in the state asked for has nothing done to it.
        if (current->state.online == online)
            return S_OK;
        if (!online && (current->state.system || current->state.boot))
            return current->state.system ? code::system_disk : code::boot_disk;
        Log(entry_.name + (online ? L" goes online" : L" goes offline"));
        return WriteOnline(entry_.section, online) ? S_OK : HRESULT_FROM_WIN32(GetLastError());
    }

    DiskEntry entry_;
};

HRESULT STDMETHODCALLTYPE Disk::GetProperties(VDS_DISK_PROP* properties)
{
    if (properties == nullptr)
        return E_INVALIDARG;
    const auto current = ReadDisk(entry_.section);
    if (!current)
        return code::object_not_found;
    *properties = {};
    properties->id = IdOf(L"disk", current->section);
    properties->health = VDS_H_HEALTHY;
    properties->status = current->state.online ? VDS_DS_ONLINE : VDS_DS_OFFLINE;
    properties->ulBytesPerSector = current->sectorSize;
    properties->BusType = VDS_BUS_FILE_BACKED;
    properties->ulFlags = (current->state.readOnly ? VDS_DF_READ_ONLY : 0) |
                          (current->state.system ? VDS_DF_SYSTEM_DISK : 0) |
                          (current->state.boot ? VDS_DF_BOOT_DISK : 0);
    try {
        FileDisk file(current->file, current->sectorSize, FileDisk::Access::Read, 0);
        const PartitionTable table = ReadPartitionTable(file);
        properties->ullSize = file.Size();
        properties->PartitionStyle = table.style == PartitionStyle::Gpt   ? VDS_PST_GPT
                                     : table.style == PartitionStyle::Mbr ? VDS_PST_MBR
                                                                          : VDS_PST_UNKNOWN;
        std::memcpy(&properties->DiskGuid, table.id.data(), table.id.size());
    } catch (const DiskError& error) {
        // Still there, by its name, but of no use.
        properties->status = VDS_DS_FAILED;
        properties->health = VDS_H_FAILED;
        Log(current->name + L": " + current->file + L" cannot be read");
    }
    properties->pwszName = current->name.empty() ? nullptr : TaskString(current->name);
    properties->pwszFriendlyName = TaskString(current->section);
    properties->pwszDevicePath = TaskString(current->file);
    return S_OK;
}

Objects DisksWhere(const std::function<bool(const DiskEntry&)>& wanted)
{
    Objects objects;
    for (const DiskEntry& entry : ReadDisks())
        if (wanted(entry))
            objects.push_back(static_cast<IVdsDisk*>(new Disk(entry)));
    return objects;
}

// --- packs and providers --------------------------------------------------------------------------------

IUnknown* NewProvider(const std::wstring& name);

class Pack final : public ComObject<IVdsPack> {
  public:
    Pack(std::wstring provider, std::wstring pack)
        : provider_(std::move(provider)), pack_(std::move(pack))
    {
    }

    HRESULT STDMETHODCALLTYPE GetProperties(VDS_PACK_PROP* properties) override
    {
        if (properties == nullptr)
            return E_INVALIDARG;
        *properties = {};
        properties->id = IdOf(L"pack", provider_ + L"\\" + pack_);
        properties->pwszName = TaskString(pack_);
        properties->status = VDS_PS_ONLINE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetProvider(IVdsProvider** provider) override
    {
        if (provider == nullptr)
            return E_INVALIDARG;
        IUnknown* const object = NewProvider(provider_);
        const HRESULT result =
            object->QueryInterface(__uuidof(IVdsProvider), reinterpret_cast<void**>(provider));
        object->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE QueryVolumes(IEnumVdsObject** volumes) override
    {
        return Enumerate({}, volumes);
    }
    HRESULT STDMETHODCALLTYPE QueryDisks(IEnumVdsObject** disks) override
    {
        return Enumerate(DisksWhere([this](const DiskEntry& disk) {
                             return disk.provider == provider_ && disk.pack == pack_;
                         }),
                         disks);
    }
    HRESULT STDMETHODCALLTYPE CreateVolume() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE AddDisk() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE MigrateDisks() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE ReplaceDisk() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE RemoveMissingDisk() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE Recover(IVdsAsync** async) override
    {
        if (async != nullptr)
            *async = nullptr;
        return NotSupported();
    }

  private:
    std::wstring provider_, pack_;
};

IUnknown* NewPack(const std::wstring& provider, const std::wstring& pack)
{
    return new Pack(provider, pack);
}

// The different values that the disks have, in the order of the file.
std::vector<std::wstring> Distinct(const std::function<std::wstring(const DiskEntry&)>& value)
{
    std::vector<std::wstring> values;
    for (const DiskEntry& disk : ReadDisks()) {
        const std::wstring found = value(disk);
        if (!found.empty() && std::find(values.begin(), values.end(), found) == values.end())
            values.push_back(found);
    }
    return values;
}

class Provider final : public ComObject<IVdsProvider, IVdsSwProvider> {
  public:
    explicit Provider(std::wstring name) : name_(std::move(name)) {}

    HRESULT STDMETHODCALLTYPE GetProperties(VDS_PROVIDER_PROP* properties) override
    {
        if (properties == nullptr)
            return E_INVALIDARG;
        *properties = {};
        properties->id = IdOf(L"provider", name_);
        properties->pwszName = TaskString(name_);
        properties->pwszVersion = TaskString(L"1.0");
        properties->type = VDS_PT_SOFTWARE;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryPacks(IEnumVdsObject** packs) override
    {
        Objects objects;
        for (const std::wstring& pack : Distinct([this](const DiskEntry& disk) {
                 return disk.provider == name_ ? disk.pack : std::wstring();
             }))
            objects.push_back(NewPack(name_, pack));
        return Enumerate(std::move(objects), packs);
    }
    HRESULT STDMETHODCALLTYPE CreatePack(IVdsPack** pack) override
    {
        if (pack != nullptr)
            *pack = nullptr;
        return NotSupported();
    }

  private:
    std::wstring name_;
};

IUnknown* NewProvider(const std::wstring& name)
{
    return static_cast<IVdsProvider*>(new Provider(name));
}

// --- the service ------------------------------------------------------------------------------------------

class Service final : public ComObject<IVdsService> {
  public:
    HRESULT STDMETHODCALLTYPE IsServiceReady() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE WaitForServiceReady() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE GetProperties(VDS_SERVICE_PROP* properties) override
    {
        if (properties == nullptr)
            return E_INVALIDARG;
        *properties = {};
        properties->pwszVersion = TaskString(L"1.0");
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryProviders(DWORD masks, IEnumVdsObject** providers) override
    {
        if ((masks & ~(VDS_QUERY_SOFTWARE_PROVIDERS | VDS_QUERY_HARDWARE_PROVIDERS)) != 0)
            return E_INVALIDARG;
        Objects objects;
        if ((masks & VDS_QUERY_SOFTWARE_PROVIDERS) != 0)
            for (const std::wstring& name :
                 Distinct([](const DiskEntry& disk) { return disk.provider; }))
                objects.push_back(NewProvider(name));
        return Enumerate(std::move(objects), providers);
    }
    HRESULT STDMETHODCALLTYPE QueryMaskedDisks(IEnumVdsObject** disks) override
    {
        return Enumerate({}, disks);
    }
    HRESULT STDMETHODCALLTYPE QueryUnallocatedDisks(IEnumVdsObject** disks) override
    {
        return Enumerate(DisksWhere([](const DiskEntry& disk) { return disk.pack.empty(); }),
                         disks);
    }
    HRESULT STDMETHODCALLTYPE GetObject(VDS_OBJECT_ID, VDS_OBJECT_TYPE, IUnknown** object) override
    {
        if (object != nullptr)
            *object = nullptr;
        return NotSupported();
    }
    HRESULT STDMETHODCALLTYPE QueryDriveLetters() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE QueryFileSystemTypes() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE Reenumerate() override
    {
        return S_OK; // every query reads the disks anew
    }
    HRESULT STDMETHODCALLTYPE Refresh() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE CleanupObsoleteMountPoints() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE Advise() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE Unadvise() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE Reboot() override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE SetFlags(ULONG) override { return NotSupported(); }
    HRESULT STDMETHODCALLTYPE ClearFlags(ULONG) override { return NotSupported(); }
};

class Loader final : public ComObject<IVdsServiceLoader> {
  public:
    HRESULT STDMETHODCALLTYPE LoadService(LPWSTR machine, IVdsService** service) override
    {
        if (service == nullptr)
            return E_INVALIDARG;
        *service = nullptr;
        if (machine != nullptr && machine[0] != 0)
            return code::not_supported; // only this machine's disks
        *service = new Service;
        return S_OK;
    }
};

// Lives as long as the process and does not keep it running.
class LoaderFactory final : public IClassFactory {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        const bool known =
            IsEqualIID(id, __uuidof(IUnknown)) || IsEqualIID(id, __uuidof(IClassFactory));
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID id, void** object) override
    {
        *object = nullptr;
        if (outer != nullptr)
            return CLASS_E_NOAGGREGATION;
        ULONG client = 0;
        if (I_RpcBindingInqLocalClientPID(nullptr, &client) != RPC_S_OK ||
            !ServerActivity::ServeOnly(client))
            return E_ACCESSDENIED;
        auto* const loader = new Loader;
        const HRESULT result = loader->QueryInterface(id, object);
        loader->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override
    {
        lock ? ServerActivity::Entered() : ServerActivity::Left();
        return S_OK;
    }
};

} // namespace

IUnknown* NewLoaderFactory()
{
    static LoaderFactory factory;
    return &factory;
}

} // namespace kestro::vds
