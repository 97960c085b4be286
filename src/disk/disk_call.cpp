// disk_call.cpp - connecting to the Virtual Disk Service and finding a disk by its name.
#include "disk/disk_call.h"

#include <cwchar>
#include <optional>

namespace kestro::library {
namespace {

// What a call on an object that the service never handed out comes to.
constexpr HRESULT kNoObject = E_POINTER;

bool Matches(const wchar_t* diskName, const wchar_t* name)
{
    constexpr std::size_t comparedCharacters = 40;
    return diskName != nullptr && name != nullptr &&
           _wcsnicmp(diskName, name, comparedCharacters) == 0;
}

// An enumerator the service never handed out counts as exhausted.
HRESULT Next(const ComSlot<IEnumVdsObject>& enumerator, ComPtr<IUnknown>& object, ULONG& fetched)
{
    return enumerator ? enumerator->Next(1, object.Put(), &fetched) : S_FALSE;
}

// Converts what Next fetched and lets go of it. Without an object this fails: with Next's own code if
// that tells of a failure.
template <class T>
HRESULT Convert(ComPtr<IUnknown>& object, HRESULT next, ComSlot<T>& converted)
{
    void** slot = reinterpret_cast<void**>(converted.Put());
    if (!object)
        return FAILED(next) ? next : kNoObject;
    const HRESULT result = object->QueryInterface(__uuidof(T), slot);
    object.Release();
    return result;
}

class DiskSearch {
  public:
    DiskSearch(DiskCall& call, const wchar_t* diskName) : call_(call), diskName_(diskName) {}

    std::int32_t Run()
    {
        const DiskEnding ending = Search();
        if (ending.exit == DiskEnding::Exit::Common)
            LeaveService();
        return ending.value;
    }

  private:
    // A stage that comes to an end of the call returns it; none means: go on with what comes next.
    using Stage = std::optional<DiskEnding>;

    DiskEnding Search();
    Stage Connect();
    Stage SearchUnallocated();
    Stage SearchProviders();
    Stage SearchPacks();
    Stage SearchPackDisks();
    void LeaveService();

    DiskEnding Failed(DiskStep step) { return call_.Failed(step, result_); }
    DiskEnding Found(DiskPlace place) { return call_.Found(place, disk_, result_); }

    DiskCall& call_;
    const wchar_t* diskName_;
    HRESULT result_ = S_OK; // the last code that was kept
    ULONG fetched_ = 0;

    // Left in the service unless a line below releases them.
    ComSlot<IVdsService> service_;
    ComSlot<IEnumVdsObject> unallocatedDisks_;
    ComSlot<IEnumVdsObject> providers_;
    ComSlot<IEnumVdsObject> packs_;
    ComSlot<IEnumVdsObject> packDisks_;
    ComSlot<IVdsProvider> provider_;
    ComSlot<IVdsSwProvider> softwareProvider_;
    ComSlot<IVdsPack> pack_;
    ComSlot<IVdsDisk> disk_;
};

DiskEnding DiskSearch::Search()
{
    if (const Stage end = Connect())
        return *end;
    if (const Stage end = SearchUnallocated())
        return *end;
    if (const Stage end = SearchProviders())
        return *end;
    return call_.NotFound(result_);
}

DiskSearch::Stage DiskSearch::Connect()
{
    const HRESULT security =
        CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE,
                             RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    call_.TellNumber("Security Coinitialized Result: ", security);

    ComPtr<IVdsServiceLoader> loader;
    result_ = CoCreateInstance(CLSID_VdsLoader, nullptr, CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
                               __uuidof(IVdsServiceLoader), reinterpret_cast<void**>(loader.Put()));
    call_.TellNumber("CoCreateInstance HRESULT: ", result_);
    if (FAILED(result_))
        return Failed(DiskStep::CreateLoader);

    result_ = loader ? loader->LoadService(nullptr, service_.Put()) : kNoObject;
    loader.Release();
    call_.TellNumber("LoadService HRESULT: ", result_);
    if (FAILED(result_))
        return Failed(DiskStep::LoadService);
    return {};
}

DiskSearch::Stage DiskSearch::SearchUnallocated()
{
    if (service_)
        service_->QueryUnallocatedDisks(unallocatedDisks_.Put());
    fetched_ = 0;
    for (;;) {
        call_.Tell("Enumerating Unallocated disks");
        ComPtr<IUnknown> object;
        result_ = Next(unallocatedDisks_, object, fetched_);
        if (result_ == S_FALSE)
            return {};

        result_ = Convert(object, result_, disk_);
        call_.TellNumber("IID_IVdsDisk query interface HRESULT: ", result_);
        if (FAILED(result_))
            return Failed(DiskStep::UnallocatedDisk);

        VDS_DISK_PROP properties = {};
        result_ = disk_ ? disk_->GetProperties(&properties) : kNoObject;
        call_.TellNumber("GetProperties HRESULT: ", result_);
        if (FAILED(result_))
            return Failed(DiskStep::UnallocatedDiskProperties);

        if (Matches(diskName_, properties.pwszName))
            return Found(DiskPlace::Unallocated);
    }
}

DiskSearch::Stage DiskSearch::SearchProviders()
{
    call_.Tell("No more providers in the list of unallocated disks.");
    result_ = service_ ? service_->QueryProviders(VDS_QUERY_SOFTWARE_PROVIDERS, providers_.Put())
                       : kNoObject;
    if (FAILED(result_))
        return Failed(DiskStep::QueryProviders);

    call_.Tell("Querying software providers...");
    fetched_ = 0;
    for (;;) {
        ComPtr<IUnknown> object;
        result_ = Next(providers_, object, fetched_);
        if (result_ == S_FALSE)
            return {};
        if (FAILED(result_))
            return Failed(DiskStep::NextProvider);

        call_.Tell("Querying IVdsProvider interface...");
        result_ = Convert(object, result_, provider_);
        if (FAILED(result_))
            return Failed(DiskStep::Provider);
        VDS_PROVIDER_PROP properties = {};
        result_ = provider_ ? provider_->GetProperties(&properties) : kNoObject;
        if (FAILED(result_))
            return Failed(DiskStep::Provider);
        result_ = provider_->QueryInterface(__uuidof(IVdsSwProvider),
                                            reinterpret_cast<void**>(softwareProvider_.Put()));
        provider_.Release();
        if (FAILED(result_))
            return Failed(DiskStep::Provider);

        call_.Tell("Querying packs...");
        result_ = softwareProvider_ ? softwareProvider_->QueryPacks(packs_.Put()) : kNoObject;
        softwareProvider_.Release();
        if (FAILED(result_))
            return Failed(DiskStep::QueryPacks);

        if (const Stage end = SearchPacks())
            return end;
    }
}

DiskSearch::Stage DiskSearch::SearchPacks()
{
    fetched_ = 0;
    for (long number = 1;; ++number) {
        ComPtr<IUnknown> object;
        result_ = Next(packs_, object, fetched_);
        if (result_ == S_FALSE)
            return {};
        if (FAILED(result_))
            return Failed(DiskStep::PackOrPackDisk);

        call_.TellPack(number);
        result_ = Convert(object, result_, pack_);
        if (FAILED(result_))
            return Failed(DiskStep::PackOrPackDisk);

        // Neither result is tested; without disks to enumerate the pack counts as exhausted.
        IEnumVdsObject** const packDisks = packDisks_.Put();
        if (pack_) {
            VDS_PACK_PROP properties = {};
            pack_->GetProperties(&properties);
            pack_->QueryDisks(packDisks);
        }
        if (const Stage end = SearchPackDisks())
            return end;
    }
}

DiskSearch::Stage DiskSearch::SearchPackDisks()
{
    fetched_ = 0;
    for (long number = 1;; ++number) {
        ComPtr<IUnknown> object;
        result_ = Next(packDisks_, object, fetched_);
        if (result_ == S_FALSE)
            return {};
        if (FAILED(result_))
            return Failed(DiskStep::PackOrPackDisk);

        call_.TellDisk(number);
        result_ = Convert(object, result_, disk_);
        if (FAILED(result_))
            return Failed(DiskStep::PackOrPackDisk);

        // Here, unlike among the unallocated disks, a disk that hides its properties is passed over.
        VDS_DISK_PROP properties = {};
        if (disk_)
            disk_->GetProperties(&properties);
        if (Matches(diskName_, properties.pwszName))
            return Found(DiskPlace::Pack);
    }
}

// The common exit. Packs, disks, earlier enumerators and the action's objects are left.
void DiskSearch::LeaveService()
{
    providers_.Release();
    packs_.Release();
    packDisks_.Release();
    service_.Release();
    unallocatedDisks_.Release();
    call_.Tell("All resources were released safely (Inside Main).");
    CoUninitialize();
    call_.TellNumber("Last HRESULT: ", result_);
}

} // namespace

void DiskCall::Tell(const char*) {}
void DiskCall::TellNumber(const char*, HRESULT) {}
void DiskCall::TellPack(long) {}
void DiskCall::TellDisk(long) {}

std::int32_t RunDiskCall(DiskCall& call, const wchar_t* diskName)
{
    return DiskSearch(call, diskName).Run();
}

} // namespace kestro::library
