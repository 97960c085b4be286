// disk_search.cpp - connecting to the Virtual Disk Service and finding a disk by its name.
#include "disk/disk_search.h"

#include <cwchar>
#include <optional>

#include <wrl/client.h>

namespace kestro::library {
namespace {

using Exit = DiskEnding::Exit;
using Microsoft::WRL::ComPtr;

bool Matches(const wchar_t* diskName, const wchar_t* name)
{
    constexpr std::size_t comparedCharacters = 40;
    return diskName != nullptr && name != nullptr &&
           _wcsnicmp(diskName, name, comparedCharacters) == 0;
}

// What an enumeration's latest Next fetched: let go of when it is converted, or left unconverted.
class Fetched {
  public:
    explicit Fetched(ULONG& count) : count_(count) { count_ = 0; }

    // An enumerator the service never handed out counts as exhausted.
    HRESULT Next(const ComSlot<IEnumVdsObject>& enumerator)
    {
        if (enumerator.Get() == nullptr)
            return S_FALSE;
        next_ = enumerator.Get()->Next(1, object_.ReleaseAndGetAddressOf(), &count_);
        return next_;
    }

    // Without an object this fails: with Next's own code if that tells of a failure.
    template <class T>
    HRESULT ConvertTo(ComSlot<T>& slot)
    {
        const bool nothing = object_.Get() == nullptr;
        const HRESULT result = Convert(object_.Get(), slot);
        object_.Reset();
        return nothing && FAILED(next_) ? next_ : result;
    }

  private:
    ULONG& count_; // the call's one count
    ComPtr<IUnknown> object_;
    HRESULT next_ = S_OK;
};

class DiskSearch {
  public:
    DiskSearch(const wchar_t* diskName, DiskAction& action, DiskProgress& progress)
        : diskName_(diskName), action_(action), progress_(progress)
    {
    }

    std::int32_t Run()
    {
        const DiskEnding ending = Search();
        if (ending.exit == Exit::Common)
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

    DiskEnding FailedEarly(Exit exit, const char* line)
    {
        progress_.Tell(line);
        return action_.FailedEarly(exit, result_);
    }
    // Inside the providers every export leaves with the code itself, some of them with a line.
    DiskEnding FailedInside() const { return {Exit::AtOnce, result_}; }
    DiskEnding FailedInside(const char* line)
    {
        progress_.Tell(line);
        return FailedInside();
    }
    DiskEnding Found(DiskPlace place) { return action_.Found(place, disk_, result_); }

    const wchar_t* diskName_;
    DiskAction& action_;
    DiskProgress& progress_;
    HRESULT result_ = S_OK; // the last code that was kept
    ULONG fetchedCount_ = 0;

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
    return {Exit::Common, action_.NotFound(result_)};
}

DiskSearch::Stage DiskSearch::Connect()
{
    const HRESULT security =
        CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE,
                             RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    progress_.Tell("Security Coinitialized Result: ", security);

    ComPtr<IVdsServiceLoader> loader;
    result_ = CoCreateInstance(CLSID_VdsLoader, nullptr, CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
                               __uuidof(IVdsServiceLoader),
                               reinterpret_cast<void**>(loader.GetAddressOf()));
    progress_.Tell("CoCreateInstance HRESULT: ", result_);
    if (FAILED(result_))
        return FailedEarly(Exit::AtOnce, "CoCreateInstance failed");

    result_ = CallOn(loader.Get(), &IVdsServiceLoader::LoadService, nullptr, service_.Put());
    loader.Reset();
    progress_.Tell("LoadService HRESULT: ", result_);
    if (FAILED(result_))
        return FailedEarly(Exit::Common, "LoadService failed");
    return {};
}

DiskSearch::Stage DiskSearch::SearchUnallocated()
{
    CallOn(service_.Get(), &IVdsService::QueryUnallocatedDisks, unallocatedDisks_.Put());
    for (Fetched fetched(fetchedCount_);;) {
        progress_.Tell("Enumerating Unallocated disks");
        result_ = fetched.Next(unallocatedDisks_);
        if (result_ == S_FALSE)
            return {};

        result_ = fetched.ConvertTo(disk_);
        progress_.Tell("IID_IVdsDisk query interface HRESULT: ", result_);
        if (FAILED(result_))
            return FailedEarly(Exit::Common, "Failed to query IID_IVdsDisk interface");

        VDS_DISK_PROP properties = {};
        result_ = CallOn(disk_.Get(), &IVdsDisk::GetProperties, &properties);
        progress_.Tell("GetProperties HRESULT: ", result_);
        if (FAILED(result_))
            return FailedEarly(Exit::Common, "Failed to get disk properties.");

        if (Matches(diskName_, properties.pwszName))
            return Found(DiskPlace::Unallocated);
    }
}

DiskSearch::Stage DiskSearch::SearchProviders()
{
    progress_.Tell("No more providers in the list of unallocated disks.");
    result_ = CallOn(service_.Get(), &IVdsService::QueryProviders, VDS_QUERY_SOFTWARE_PROVIDERS,
                     providers_.Put());
    if (FAILED(result_))
        return FailedInside();

    progress_.Tell("Querying software providers...");
    for (Fetched fetched(fetchedCount_);;) {
        result_ = fetched.Next(providers_);
        if (result_ == S_FALSE)
            return {};
        if (FAILED(result_))
            return FailedInside("Error in querying software providers...");

        progress_.Tell("Querying IVdsProvider interface...");
        result_ = fetched.ConvertTo(provider_);
        if (FAILED(result_))
            return FailedInside();
        VDS_PROVIDER_PROP properties = {};
        result_ = CallOn(provider_.Get(), &IVdsProvider::GetProperties, &properties);
        if (FAILED(result_))
            return FailedInside();
        result_ = Convert(provider_.Get(), softwareProvider_);
        provider_.Release();
        if (FAILED(result_))
            return FailedInside();

        progress_.Tell("Querying packs...");
        result_ = CallOn(softwareProvider_.Get(), &IVdsSwProvider::QueryPacks, packs_.Put());
        softwareProvider_.Release();
        if (FAILED(result_))
            return FailedInside("Error in querying packs...");

        if (const Stage end = SearchPacks())
            return end;
    }
}

DiskSearch::Stage DiskSearch::SearchPacks()
{
    Fetched fetched(fetchedCount_);
    for (long number = 1;; ++number) {
        result_ = fetched.Next(packs_);
        if (result_ == S_FALSE)
            return {};
        if (FAILED(result_))
            return FailedInside();

        progress_.Count("Pack #: %ld\n", number);
        result_ = fetched.ConvertTo(pack_);
        if (FAILED(result_))
            return FailedInside();

        // Neither result is tested; without disks to enumerate the pack counts as exhausted.
        VDS_PACK_PROP properties = {};
        CallOn(pack_.Get(), &IVdsPack::GetProperties, &properties);
        CallOn(pack_.Get(), &IVdsPack::QueryDisks, packDisks_.Put());
        if (const Stage end = SearchPackDisks())
            return end;
    }
}

DiskSearch::Stage DiskSearch::SearchPackDisks()
{
    Fetched fetched(fetchedCount_);
    for (long number = 1;; ++number) {
        result_ = fetched.Next(packDisks_);
        if (result_ == S_FALSE)
            return {};
        if (FAILED(result_))
            return FailedInside();

        progress_.Count("Disk #: %ld\n", number);
        result_ = fetched.ConvertTo(disk_);
        if (FAILED(result_))
            return FailedInside();

        // Here, unlike among the unallocated disks, a disk that hides its properties is passed over.
        VDS_DISK_PROP properties = {};
        CallOn(disk_.Get(), &IVdsDisk::GetProperties, &properties);
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
    progress_.Tell("All resources were released safely (Inside Main).");
    CoUninitialize();
    progress_.Tell("Last HRESULT: ", result_);
}

} // namespace

std::int32_t FindDisk(const wchar_t* diskName, DiskAction& action, DiskProgress& progress)
{
    return DiskSearch(diskName, action, progress).Run();
}

} // namespace kestro::library
