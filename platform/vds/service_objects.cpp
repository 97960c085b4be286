// service_objects.cpp - the service and its loader.
#include "service_objects.h"

#include "disk_objects.h"

namespace kestro::vds {
namespace {

// A service may need a while before it answers; disks.ini says how long, for trying that out.
const ULONGLONG g_readyAt = GetTickCount64() + 1000ull * SecondsToReady();

DWORD TimeToReady()
{
    const ULONGLONG now = GetTickCount64();
    return now < g_readyAt ? static_cast<DWORD>(g_readyAt - now) : 0;
}

bool Ready()
{
    return TimeToReady() == 0;
}

class Service final : public ComObject<IVdsService> {
  public:
    HRESULT STDMETHODCALLTYPE IsServiceReady() override { return Ready() ? S_OK : S_FALSE; }
    HRESULT STDMETHODCALLTYPE WaitForServiceReady() override
    {
        Sleep(TimeToReady());
        return S_OK;
    }
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
        if (!Ready())
            return None(providers, code::not_ready);
        Objects objects;
        if ((masks & VDS_QUERY_SOFTWARE_PROVIDERS) != 0)
            for (const std::wstring& name :
                 Distinct([](const DiskEntry& disk) { return disk.provider; }))
                objects.push_back(NewProvider(name));
        return Enumerate(std::move(objects), providers);
    }
    HRESULT STDMETHODCALLTYPE QueryMaskedDisks(IEnumVdsObject** disks) override
    {
        return Ready() ? Enumerate({}, disks) : None(disks, code::not_ready);
    }
    HRESULT STDMETHODCALLTYPE QueryUnallocatedDisks(IEnumVdsObject** disks) override
    {
        if (!Ready())
            return None(disks, code::not_ready);
        return Enumerate(DisksWhere([](const DiskEntry& disk) { return disk.pack.empty(); }),
                         disks);
    }
    HRESULT STDMETHODCALLTYPE GetObject(VDS_OBJECT_ID, VDS_OBJECT_TYPE, IUnknown** object) override
    {
        return None(object, code::not_supported);
    }
    HRESULT STDMETHODCALLTYPE QueryDriveLetters(WCHAR, DWORD, VDS_DRIVE_LETTER_PROP*) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE QueryFileSystemTypes(VDS_FILE_SYSTEM_TYPE_PROP** types,
                                                   LONG*) override
    {
        return None(types, code::not_supported);
    }
    HRESULT STDMETHODCALLTYPE Reenumerate() override
    {
        return S_OK; // every query reads the disks anew
    }
    HRESULT STDMETHODCALLTYPE Refresh() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE CleanupObsoleteMountPoints() override { return code::not_supported; }
    HRESULT STDMETHODCALLTYPE Advise(IVdsAdviseSink*, DWORD*) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD) override { return code::not_supported; }
    HRESULT STDMETHODCALLTYPE Reboot() override { return code::not_supported; }
    HRESULT STDMETHODCALLTYPE SetFlags(ULONG) override { return code::not_supported; }
    HRESULT STDMETHODCALLTYPE ClearFlags(ULONG) override { return code::not_supported; }
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
        *service = New<Service>();
        return S_OK;
    }
};

// Lives as long as the process.
class Factory final : public IClassFactory {
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
        auto* const loader = New<Loader>();
        const HRESULT result = loader->QueryInterface(id, object);
        loader->Release();
        return result;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

} // namespace

IClassFactory* LoaderFactory()
{
    static Factory factory;
    return &factory;
}

} // namespace kestro::vds
