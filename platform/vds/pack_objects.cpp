// pack_objects.cpp - the software providers and their packs.
#include "disk_objects.h"

#include <algorithm>

namespace kestro::vds {
namespace {

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
    HRESULT STDMETHODCALLTYPE CreateVolume(VDS_VOLUME_TYPE, VDS_INPUT_DISK*, LONG, ULONG,
                                           IVdsAsync** async) override
    {
        return None(async, code::not_supported);
    }
    HRESULT STDMETHODCALLTYPE AddDisk(VDS_OBJECT_ID, VDS_PARTITION_STYLE, BOOL) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE MigrateDisks(VDS_OBJECT_ID*, LONG, VDS_OBJECT_ID, BOOL, BOOL,
                                           HRESULT*, BOOL*) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE ReplaceDisk(VDS_OBJECT_ID, VDS_OBJECT_ID, IVdsAsync** async) override
    {
        return None(async, code::not_supported);
    }
    HRESULT STDMETHODCALLTYPE RemoveMissingDisk(VDS_OBJECT_ID) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE Recover(IVdsAsync** async) override
    {
        return None(async, code::not_supported);
    }

  private:
    std::wstring provider_, pack_;
};

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
        return None(pack, code::not_supported);
    }

  private:
    std::wstring name_;
};

} // namespace

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

IUnknown* NewPack(const std::wstring& provider, const std::wstring& pack)
{
    return New<Pack>(provider, pack);
}

IUnknown* NewProvider(const std::wstring& name)
{
    return static_cast<IVdsProvider*>(New<Provider>(name));
}

} // namespace kestro::vds
