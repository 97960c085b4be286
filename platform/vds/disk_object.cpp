// disk_object.cpp - a disk.
#include "clean_operation.h"
#include "disk_objects.h"
#include "file_disk.h"

#include <cstring>

namespace kestro::vds {
namespace {

VDS_DISK_EXTENT_TYPE ExtentTypeOf(PartitionKind kind)
{
    switch (kind) {
    case PartitionKind::Data:
        return VDS_DET_DATA;
    case PartitionKind::Dynamic:
        return VDS_DET_LDM;
    case PartitionKind::Oem:
        return VDS_DET_OEM;
    case PartitionKind::Esp:
        return VDS_DET_ESP;
    case PartitionKind::Reserved:
        return VDS_DET_MSR;
    }
    return VDS_DET_UNKNOWN;
}

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
    HRESULT STDMETHODCALLTYPE GetIdentificationData(VDS_LUN_INFORMATION*) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE QueryExtents(VDS_DISK_EXTENT** extents, LONG* count) override;
    HRESULT STDMETHODCALLTYPE ConvertStyle(VDS_PARTITION_STYLE) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE SetFlags(ULONG) override { return code::not_supported; }
    HRESULT STDMETHODCALLTYPE ClearFlags(ULONG) override { return code::not_supported; }

    HRESULT STDMETHODCALLTYPE GetPartitionProperties(ULONGLONG, VDS_PARTITION_PROP*) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE QueryPartitions(VDS_PARTITION_PROP** partitions, LONG*) override
    {
        return None(partitions, code::not_supported);
    }
    HRESULT STDMETHODCALLTYPE CreatePartition(ULONGLONG, ULONGLONG, CREATE_PARTITION_PARAMETERS*,
                                              IVdsAsync** async) override
    {
        return None(async, code::not_supported);
    }
    HRESULT STDMETHODCALLTYPE DeletePartition(ULONGLONG, BOOL, BOOL) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE ChangeAttributes(ULONGLONG, CHANGE_ATTRIBUTES_PARAMETERS*) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE AssignDriveLetter(ULONGLONG, WCHAR) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE DeleteDriveLetter(ULONGLONG, WCHAR) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE GetDriveLetter(ULONGLONG, WCHAR*) override
    {
        return code::not_supported;
    }
    HRESULT STDMETHODCALLTYPE FormatPartition(ULONGLONG, VDS_FILE_SYSTEM_TYPE, WCHAR*, DWORD, BOOL,
                                              BOOL, BOOL, IVdsAsync** async) override
    {
        return None(async, code::not_supported);
    }
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
        FileDisk file(*current, FileDisk::Access::Read);
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

// One for each partition; free space has none.
HRESULT STDMETHODCALLTYPE Disk::QueryExtents(VDS_DISK_EXTENT** extents, LONG* count)
{
    if (extents == nullptr || count == nullptr)
        return E_INVALIDARG;
    *extents = nullptr;
    *count = 0;
    const auto current = ReadDisk(entry_.section);
    if (!current)
        return code::object_not_found;
    try {
        FileDisk file(*current, FileDisk::Access::Read);
        const auto partitions = ReadPartitionTable(file).partitions;
        if (partitions.empty())
            return S_OK;
        *extents = static_cast<VDS_DISK_EXTENT*>(
            CoTaskMemAlloc(partitions.size() * sizeof(VDS_DISK_EXTENT)));
        if (*extents == nullptr)
            return E_OUTOFMEMORY;
        for (const Partition& partition : partitions) {
            VDS_DISK_EXTENT& extent = (*extents)[(*count)++];
            extent = {};
            extent.diskId = IdOf(L"disk", current->section);
            extent.type = ExtentTypeOf(partition.kind);
            extent.ullOffset = partition.offset;
            extent.ullSize = partition.size;
        }
        return S_OK;
    } catch (const DiskError&) {
        Log(current->name + L": " + current->file + L" cannot be read");
        return code::io_error;
    }
}

} // namespace

Objects DisksWhere(const std::function<bool(const DiskEntry&)>& wanted)
{
    Objects objects;
    for (const DiskEntry& entry : ReadDisks())
        if (wanted(entry))
            objects.push_back(static_cast<IVdsDisk*>(New<Disk>(entry)));
    return objects;
}

} // namespace kestro::vds
