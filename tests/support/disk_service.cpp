// disk_service.cpp - the service's objects.
#include "support/disk_service.h"

#include "support/scripted_object.h"
#include "vds_interfaces.h"

#include <algorithm>
#include <cstring>

namespace kestro::test {

namespace {

DiskService* active = nullptr;

// Everything but the texts is filled with a pattern.
template <typename Properties>
void Fill(Properties* properties)
{
    std::memset(static_cast<void*>(properties), 0xEE, sizeof *properties);
}

std::string NumberAfter(const std::string& number, size_t index)
{
    return (number.empty() ? "" : number + '.') + std::to_string(index + 1);
}

// --- enumerators ---

// What an enumerator gives: an object with one interface of use.
class AnyObject final : public Scripted<IUnknown> {
  public:
    AnyObject(DiskService& service, const std::string& object, const char* interface_name,
              std::function<void*()> make)
        : Scripted(service, "any " + object)
    {
        Offer(interface_name, object, std::move(make));
    }
};

struct Item {
    std::string name;
    std::function<IUnknown*()> make;
};

class EnumeratorDouble final : public Scripted<IEnumVdsObject> {
  public:
    EnumeratorDouble(DiskService& service, std::string name, std::vector<Item> items)
        : Scripted(service, std::move(name)), items_(std::move(items))
    {
    }

    // What the caller's count holds is told when the enumeration starts.
    HRESULT STDMETHODCALLTYPE Next(ULONG count, IUnknown** objects, ULONG* fetched) override
    {
        if (ended_)
            ADD_FAILURE() << Name() << ".Next after its end";
        HRESULT result = Answer("Next");
        if (result == S_OK && next_ == items_.size())
            result = S_FALSE;
        ended_ = result == S_FALSE;
        const std::string before = started_ ? "" : Format(", slot of %lu", *fetched);
        started_ = true;
        Tell(Format("Next(%lu", count) + before + ')', result);
        *objects = nullptr;
        if (!ended_ && next_ < items_.size()) {
            const Item& item = items_[next_++];
            Service().Give<IUnknown>(objects, item.name, result, item.make);
        }
        *fetched = *objects ? 1 : 0;
        return result;
    }
    UNEXPECTED(Skip, ULONG)
    UNEXPECTED(Reset)
    UNEXPECTED(Clone, IEnumVdsObject**)

  private:
    std::vector<Item> items_;
    size_t next_ = 0;
    bool started_ = false;
    bool ended_ = false;
};

// An item whose one interface is answered by an object of class Object.
template <typename Object, typename... Arguments>
Item MakeItem(DiskService& service, const char* interface_name, const std::string& object,
              Arguments... arguments)
{
    return {"any " + object, [=, &service] {
                return service.Make<AnyObject>(object, interface_name, [=, &service] {
                    return service.Make<Object>(object, arguments...);
                });
            }};
}

// --- disks ---

class AsyncDouble final : public Scripted<IVdsAsync> {
  public:
    using Scripted::Scripted;

    HRESULT STDMETHODCALLTYPE Wait(HRESULT* delivered, VDS_ASYNC_OUTPUT* output) override
    {
        const auto* bytes = reinterpret_cast<const char*>(output);
        const bool zeroed =
            std::all_of(bytes, bytes + sizeof *output, [](char byte) { return byte == 0; });
        const HRESULT result = Reply("Wait", zeroed ? "zeroed output" : "output");
        *delivered = Service().delivered;
        Fill(output);
        return result;
    }
    UNEXPECTED(Cancel)
    UNEXPECTED(QueryStatus, HRESULT*, ULONG*)
};

class AdvancedDiskDouble final : public Scripted<IVdsAdvancedDisk> {
  public:
    using Scripted::Scripted;

    HRESULT STDMETHODCALLTYPE Clean(BOOL force, BOOL force_oem, BOOL full,
                                    IVdsAsync** async) override
    {
        const HRESULT result = Reply("Clean", Format("%d, %d, %d, slot of %s", force, force_oem,
                                                     full, *async ? "something" : "NULL"));
        Service().Give<IVdsAsync>(async, "async", result,
                                  [&] { return Service().Make<AsyncDouble>("async"); });
        return result;
    }
    UNEXPECTED(GetPartitionProperties, ULONGLONG, VDS_PARTITION_PROP*)
    UNEXPECTED(QueryPartitions, VDS_PARTITION_PROP**, LONG*)
    UNEXPECTED(CreatePartition, ULONGLONG, ULONGLONG, CREATE_PARTITION_PARAMETERS*, IVdsAsync**)
    UNEXPECTED(DeletePartition, ULONGLONG, BOOL, BOOL)
    UNEXPECTED(ChangeAttributes, ULONGLONG, CHANGE_ATTRIBUTES_PARAMETERS*)
    UNEXPECTED(AssignDriveLetter, ULONGLONG, WCHAR)
    UNEXPECTED(DeleteDriveLetter, ULONGLONG, WCHAR)
    UNEXPECTED(GetDriveLetter, ULONGLONG, WCHAR*)
    UNEXPECTED(FormatPartition, ULONGLONG, VDS_FILE_SYSTEM_TYPE, WCHAR*, DWORD, BOOL, BOOL, BOOL,
               IVdsAsync**)
};

class DiskOnlineDouble final : public Scripted<IVdsDiskOnline> {
  public:
    using Scripted::Scripted;

    HRESULT STDMETHODCALLTYPE Online() override { return Reply("Online"); }
    HRESULT STDMETHODCALLTYPE Offline() override { return Reply("Offline"); }
};

class DiskDouble final : public Scripted<IVdsDisk> {
  public:
    DiskDouble(DiskService& service, const std::string& name, const wchar_t* disk_name)
        : Scripted(service, name), disk_name_(disk_name)
    {
        const std::string advanced = "advanced " + name, online = "online " + name;
        Offer("IVdsAdvancedDisk", advanced,
              [=, &service] { return service.Make<AdvancedDiskDouble>(advanced); });
        Offer("IVdsDiskOnline", online,
              [=, &service] { return service.Make<DiskOnlineDouble>(online); });
    }

    HRESULT STDMETHODCALLTYPE GetProperties(VDS_DISK_PROP* properties) override
    {
        const HRESULT result = Reply("GetProperties");
        if (Service().Gives("name of " + Name(), result)) {
            Fill(properties);
            const auto decoy = const_cast<wchar_t*>(Service().decoy);
            properties->pwszDiskAddress = properties->pwszFriendlyName = decoy;
            properties->pwszAdaptorName = properties->pwszDevicePath = decoy;
            properties->pwszName = const_cast<wchar_t*>(disk_name_);
        }
        return result;
    }
    UNEXPECTED(GetPack, IVdsPack**)
    UNEXPECTED(GetIdentificationData, VDS_LUN_INFORMATION*)
    UNEXPECTED(QueryExtents, VDS_DISK_EXTENT**, LONG*)
    UNEXPECTED(ConvertStyle, VDS_PARTITION_STYLE)
    UNEXPECTED(SetFlags, ULONG)
    UNEXPECTED(ClearFlags, ULONG)

  private:
    const wchar_t* disk_name_;
};

EnumeratorDouble* MakeDisks(DiskService& service, const std::string& name,
                            const std::string& number, const DiskNames& disks)
{
    std::vector<Item> items;
    for (size_t i = 0; i < disks.size(); ++i)
        items.push_back(
            MakeItem<DiskDouble>(service, "IVdsDisk", "disk " + NumberAfter(number, i), disks[i]));
    return service.Make<EnumeratorDouble>(name, std::move(items));
}

// --- packs, providers, the service ---

class PackDouble final : public Scripted<IVdsPack> {
  public:
    PackDouble(DiskService& service, const std::string& name, const std::string& number,
               DiskNames disks)
        : Scripted(service, name), number_(number), disks_(std::move(disks))
    {
    }

    HRESULT STDMETHODCALLTYPE GetProperties(VDS_PACK_PROP* properties) override
    {
        Fill(properties);
        return Reply("GetProperties");
    }
    HRESULT STDMETHODCALLTYPE QueryDisks(IEnumVdsObject** disks) override
    {
        const HRESULT result = Reply("QueryDisks");
        const std::string name = "disks " + number_;
        Service().Give<IEnumVdsObject>(disks, name, result,
                                       [&] { return MakeDisks(Service(), name, number_, disks_); });
        return result;
    }
    UNEXPECTED(GetProvider, IVdsProvider**)
    UNEXPECTED(QueryVolumes, IEnumVdsObject**)
    UNEXPECTED(CreateVolume, VDS_VOLUME_TYPE, VDS_INPUT_DISK*, LONG, ULONG, IVdsAsync**)
    UNEXPECTED(AddDisk, VDS_OBJECT_ID, VDS_PARTITION_STYLE, BOOL)
    UNEXPECTED(MigrateDisks, VDS_OBJECT_ID*, LONG, VDS_OBJECT_ID, BOOL, BOOL, HRESULT*, BOOL*)
    UNEXPECTED(ReplaceDisk, VDS_OBJECT_ID, VDS_OBJECT_ID, IVdsAsync**)
    UNEXPECTED(RemoveMissingDisk, VDS_OBJECT_ID)
    UNEXPECTED(Recover, IVdsAsync**)

  private:
    std::string number_;
    DiskNames disks_;
};

class SoftwareProviderDouble final : public Scripted<IVdsSwProvider> {
  public:
    SoftwareProviderDouble(DiskService& service, const std::string& name, const std::string& number,
                           Packs packs)
        : Scripted(service, name), number_(number), packs_(std::move(packs))
    {
    }

    HRESULT STDMETHODCALLTYPE QueryPacks(IEnumVdsObject** packs) override
    {
        const HRESULT result = Reply("QueryPacks");
        const std::string name = "packs " + number_;
        Service().Give<IEnumVdsObject>(packs, name, result, [&] {
            std::vector<Item> items;
            for (size_t i = 0; i < packs_.size(); ++i) {
                const std::string number = NumberAfter(number_, i);
                items.push_back(MakeItem<PackDouble>(Service(), "IVdsPack", "pack " + number,
                                                     number, packs_[i]));
            }
            return Service().Make<EnumeratorDouble>(name, std::move(items));
        });
        return result;
    }
    UNEXPECTED(CreatePack, IVdsPack**)

  private:
    std::string number_;
    Packs packs_;
};

class ProviderDouble final : public Scripted<IVdsProvider> {
  public:
    ProviderDouble(DiskService& service, const std::string& name, const std::string& number,
                   const Packs& packs)
        : Scripted(service, name)
    {
        const std::string software = "software " + name;
        Offer("IVdsSwProvider", software, [=, &service] {
            return service.Make<SoftwareProviderDouble>(software, number, packs);
        });
    }

    HRESULT STDMETHODCALLTYPE GetProperties(VDS_PROVIDER_PROP* properties) override
    {
        Fill(properties);
        return Reply("GetProperties");
    }
};

class ServiceDouble final : public Scripted<IVdsService> {
  public:
    using Scripted::Scripted;

    HRESULT STDMETHODCALLTYPE QueryProviders(DWORD mask, IEnumVdsObject** providers) override
    {
        const HRESULT result = Reply("QueryProviders", Format("0x%lX", mask));
        Service().Give<IEnumVdsObject>(providers, "providers", result, [&] {
            std::vector<Item> items;
            for (size_t i = 0; i < Service().providers.size(); ++i) {
                const std::string number = NumberAfter("", i);
                items.push_back(MakeItem<ProviderDouble>(Service(), "IVdsProvider",
                                                         "provider " + number, number,
                                                         Service().providers[i]));
            }
            return Service().Make<EnumeratorDouble>("providers", std::move(items));
        });
        return result;
    }
    HRESULT STDMETHODCALLTYPE QueryUnallocatedDisks(IEnumVdsObject** disks) override
    {
        const HRESULT result = Reply("QueryUnallocatedDisks");
        const char* name = "unallocated disks";
        Service().Give<IEnumVdsObject>(disks, name, result, [&] {
            return MakeDisks(Service(), name, "", Service().unallocated);
        });
        return result;
    }
    UNEXPECTED(IsServiceReady)
    UNEXPECTED(WaitForServiceReady)
    UNEXPECTED(GetProperties, VDS_SERVICE_PROP*)
    UNEXPECTED(QueryMaskedDisks, IEnumVdsObject**)
    UNEXPECTED(GetObject, VDS_OBJECT_ID, VDS_OBJECT_TYPE, IUnknown**)
    UNEXPECTED(QueryDriveLetters, WCHAR, DWORD, VDS_DRIVE_LETTER_PROP*)
    UNEXPECTED(QueryFileSystemTypes, VDS_FILE_SYSTEM_TYPE_PROP**, LONG*)
    UNEXPECTED(Reenumerate)
    UNEXPECTED(Refresh)
    UNEXPECTED(CleanupObsoleteMountPoints)
    UNEXPECTED(Advise, IVdsAdviseSink*, DWORD*)
    UNEXPECTED(Unadvise, DWORD)
    UNEXPECTED(Reboot)
    UNEXPECTED(SetFlags, ULONG)
    UNEXPECTED(ClearFlags, ULONG)
};

class LoaderDouble final : public Scripted<IVdsServiceLoader> {
  public:
    using Scripted::Scripted;

    HRESULT STDMETHODCALLTYPE LoadService(LPWSTR machine, IVdsService** service) override
    {
        const HRESULT result = Reply("LoadService", Quote(machine));
        Service().Give<IVdsService>(service, "service", result,
                                    [&] { return Service().Make<ServiceDouble>("service"); });
        return result;
    }
};

} // namespace

DiskService::DiskService()
{
    active = this;
}

DiskService::~DiskService()
{
    active = nullptr;
}

DiskService* DiskService::Active()
{
    return active;
}

bool DiskService::Gives(const std::string& what, HRESULT result) const
{
    return SUCCEEDED(result) || given_anyway.contains(what);
}

IUnknown* DiskService::MakeLoader()
{
    return Make<LoaderDouble>("loader");
}

} // namespace kestro::test
