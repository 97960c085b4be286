// interface_slots_test.cpp - the disk service's interfaces as Windows publishes them: where each method lies in
// its table, its parameters, the interfaces' identifiers, the constants and the records' sizes. The doubles, the
// library and the embedded service are made from one header; this is what pins it, written down apart from it.
#include <gtest/gtest.h>
#include <vds_interfaces.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace {

// The methods of one interface, in order, each with its parameters; as long as the interface is.
template <class Interface>
class Methods {
  public:
    explicit Methods(const char* id)
    {
        wchar_t text[40] = {};
        StringFromGUID2(__uuidof(Interface), text, 40);
        std::string narrow;
        for (const wchar_t* letter = text; *letter != 0; ++letter)
            narrow += static_cast<char>(*letter);
        EXPECT_EQ(narrow, id);
    }

    // A pointer to a virtual method holds its distance from the table's start, plus one.
    template <class... Parameters>
    Methods&
    Next(std::type_identity_t<HRESULT (STDMETHODCALLTYPE Interface::*)(Parameters...)> method)
    {
        std::uint64_t parts[2] = {};
        static_assert(sizeof method == sizeof parts);
        std::memcpy(parts, &method, sizeof parts);
        EXPECT_EQ(parts[1], 0u) << "not the interface's first base";
        EXPECT_EQ((parts[0] - 1) / sizeof(void*), slot_++);
        return *this;
    }

  private:
    std::size_t slot_ = 3; // IUnknown's come first
};

TEST(DiskInterfaces, Service)
{
    Methods<IVdsServiceLoader>("{E0393303-90D4-4A97-AB71-E9B671EE2729}")
        .Next<LPWSTR, IVdsService**>(&IVdsServiceLoader::LoadService);
    Methods<IVdsService>("{0818A8EF-9BA9-40D8-A6F9-E22833CC771E}")
        .Next<>(&IVdsService::IsServiceReady)
        .Next<>(&IVdsService::WaitForServiceReady)
        .Next<VDS_SERVICE_PROP*>(&IVdsService::GetProperties)
        .Next<DWORD, IEnumVdsObject**>(&IVdsService::QueryProviders)
        .Next<IEnumVdsObject**>(&IVdsService::QueryMaskedDisks)
        .Next<IEnumVdsObject**>(&IVdsService::QueryUnallocatedDisks)
        .Next<GUID, VDS_OBJECT_TYPE, IUnknown**>(&IVdsService::GetObject)
        .Next<WCHAR, DWORD, VDS_DRIVE_LETTER_PROP*>(&IVdsService::QueryDriveLetters)
        .Next<VDS_FILE_SYSTEM_TYPE_PROP**, LONG*>(&IVdsService::QueryFileSystemTypes)
        .Next<>(&IVdsService::Reenumerate)
        .Next<>(&IVdsService::Refresh)
        .Next<>(&IVdsService::CleanupObsoleteMountPoints)
        .Next<IVdsAdviseSink*, DWORD*>(&IVdsService::Advise)
        .Next<DWORD>(&IVdsService::Unadvise)
        .Next<>(&IVdsService::Reboot)
        .Next<ULONG>(&IVdsService::SetFlags)
        .Next<ULONG>(&IVdsService::ClearFlags);
    Methods<IVdsAdviseSink>("{8326CD1D-CF59-4936-B786-5EFC08798E25}")
        .Next<LONG, VDS_NOTIFICATION*>(&IVdsAdviseSink::OnNotify);
    Methods<IEnumVdsObject>("{118610B7-8D94-4030-B5B8-500889788E4E}")
        .Next<ULONG, IUnknown**, ULONG*>(&IEnumVdsObject::Next)
        .Next<ULONG>(&IEnumVdsObject::Skip)
        .Next<>(&IEnumVdsObject::Reset)
        .Next<IEnumVdsObject**>(&IEnumVdsObject::Clone);
    Methods<IVdsAsync>("{D5D23B6D-5A55-4492-9889-397A3C2D2DBC}")
        .Next<>(&IVdsAsync::Cancel)
        .Next<HRESULT*, VDS_ASYNC_OUTPUT*>(&IVdsAsync::Wait)
        .Next<HRESULT*, ULONG*>(&IVdsAsync::QueryStatus);
}

TEST(DiskInterfaces, ProvidersAndPacks)
{
    Methods<IVdsProvider>("{10C5E575-7984-4E81-A56B-431F5F92AE42}")
        .Next<VDS_PROVIDER_PROP*>(&IVdsProvider::GetProperties);
    Methods<IVdsSwProvider>("{9AA58360-CE33-4F92-B658-ED24B14425B8}")
        .Next<IEnumVdsObject**>(&IVdsSwProvider::QueryPacks)
        .Next<IVdsPack**>(&IVdsSwProvider::CreatePack);
    Methods<IVdsPack>("{3B69D7F5-9D94-4648-91CA-79939BA263BF}")
        .Next<VDS_PACK_PROP*>(&IVdsPack::GetProperties)
        .Next<IVdsProvider**>(&IVdsPack::GetProvider)
        .Next<IEnumVdsObject**>(&IVdsPack::QueryVolumes)
        .Next<IEnumVdsObject**>(&IVdsPack::QueryDisks)
        .Next<VDS_VOLUME_TYPE, VDS_INPUT_DISK*, LONG, ULONG, IVdsAsync**>(&IVdsPack::CreateVolume)
        .Next<GUID, VDS_PARTITION_STYLE, BOOL>(&IVdsPack::AddDisk)
        .Next<GUID*, LONG, GUID, BOOL, BOOL, HRESULT*, BOOL*>(&IVdsPack::MigrateDisks)
        .Next<GUID, GUID, IVdsAsync**>(&IVdsPack::ReplaceDisk)
        .Next<GUID>(&IVdsPack::RemoveMissingDisk)
        .Next<IVdsAsync**>(&IVdsPack::Recover);
}

TEST(DiskInterfaces, Disks)
{
    Methods<IVdsDisk>("{07E5C822-F00C-47A1-8FCE-B244DA56FD06}")
        .Next<VDS_DISK_PROP*>(&IVdsDisk::GetProperties)
        .Next<IVdsPack**>(&IVdsDisk::GetPack)
        .Next<VDS_LUN_INFORMATION*>(&IVdsDisk::GetIdentificationData)
        .Next<VDS_DISK_EXTENT**, LONG*>(&IVdsDisk::QueryExtents)
        .Next<VDS_PARTITION_STYLE>(&IVdsDisk::ConvertStyle)
        .Next<ULONG>(&IVdsDisk::SetFlags)
        .Next<ULONG>(&IVdsDisk::ClearFlags);
    using Disk = IVdsAdvancedDisk;
    Methods<Disk>("{6E6F6B40-977C-4069-BDDD-AC710059F8C0}")
        .Next<ULONGLONG, VDS_PARTITION_PROP*>(&Disk::GetPartitionProperties)
        .Next<VDS_PARTITION_PROP**, LONG*>(&Disk::QueryPartitions)
        .Next<ULONGLONG, ULONGLONG, CREATE_PARTITION_PARAMETERS*, IVdsAsync**>(
            &Disk::CreatePartition)
        .Next<ULONGLONG, BOOL, BOOL>(&Disk::DeletePartition)
        .Next<ULONGLONG, CHANGE_ATTRIBUTES_PARAMETERS*>(&Disk::ChangeAttributes)
        .Next<ULONGLONG, WCHAR>(&Disk::AssignDriveLetter)
        .Next<ULONGLONG, WCHAR>(&Disk::DeleteDriveLetter)
        .Next<ULONGLONG, WCHAR*>(&Disk::GetDriveLetter)
        .Next<ULONGLONG, VDS_FILE_SYSTEM_TYPE, WCHAR*, DWORD, BOOL, BOOL, BOOL, IVdsAsync**>(
            &Disk::FormatPartition)
        .Next<BOOL, BOOL, BOOL, IVdsAsync**>(&Disk::Clean);
    Methods<IVdsDiskOnline>("{90681B1D-6A7F-48E8-9061-31B7AA125322}")
        .Next<>(&IVdsDiskOnline::Online)
        .Next<>(&IVdsDiskOnline::Offline);
}

TEST(DiskInterfaces, Constants)
{
    EXPECT_EQ(VDS_QUERY_SOFTWARE_PROVIDERS, 1u);
    EXPECT_EQ(VDS_QUERY_HARDWARE_PROVIDERS, 2u);
    EXPECT_EQ(VDS_ASYNCOUT_CLEAN, 11);
    EXPECT_EQ(VDS_DF_READ_ONLY, 0x40u);
    EXPECT_EQ(VDS_DF_SYSTEM_DISK, 0x80u);
    EXPECT_EQ(VDS_DF_BOOT_DISK, 0x100u);
    EXPECT_EQ(VDS_H_HEALTHY, 1);
    EXPECT_EQ(VDS_H_FAILED, 8);
    EXPECT_EQ(VDS_DS_ONLINE, 1);
    EXPECT_EQ(VDS_DS_OFFLINE, 4);
    EXPECT_EQ(VDS_DS_FAILED, 5);
    EXPECT_EQ(VDS_PST_MBR, 1);
    EXPECT_EQ(VDS_PST_GPT, 2);
    EXPECT_EQ(VDS_PT_SOFTWARE, 1);
    EXPECT_EQ(VDS_OT_DISK, 13);
}

TEST(DiskInterfaces, Records)
{
    EXPECT_EQ(sizeof(VDS_DISK_PROP), 128u);
    EXPECT_EQ(sizeof(VDS_PROVIDER_PROP), 64u);
    EXPECT_EQ(sizeof(VDS_PACK_PROP), 32u);
    EXPECT_EQ(sizeof(VDS_ASYNC_OUTPUT), 32u);
    EXPECT_EQ(sizeof(VDS_PARTITION_PROP), 144u);
    EXPECT_EQ(sizeof(VDS_DISK_EXTENT), 80u);
    EXPECT_EQ(sizeof(VDS_LUN_INFORMATION), 96u);
    EXPECT_EQ(sizeof(VDS_NOTIFICATION), 48u);
}

} // namespace
