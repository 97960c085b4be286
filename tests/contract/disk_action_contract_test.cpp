// disk_action_contract_test.cpp - CleanDisk, OnlineDisk and OfflineDisk on the disk they were asked
// for.
#include "contract/disk_case.h"
#include "contract/outcome.h"

#include <cwchar>

namespace kestro::test {
namespace {

constexpr HRESULT dismount_failed = 0x00042809; // a success
constexpr HRESULT disk_offline = static_cast<HRESULT>(0x8004280A);
constexpr HRESULT boot_disk = static_cast<HRESULT>(0x80042807);

constexpr const wchar_t* wanted = L"\\\\?\\PhysicalDrive1";

// One call on a disk that is there, among the unallocated disks or in a pack.
testing::AssertionResult ActsAsItHasTo(DiskExport what, bool unallocated, const DiskAction& action,
                                       const DiskCase& arguments = {})
{
    DiskRun run;
    DiskSteps steps(what);
    if (unallocated) {
        run.service.unallocated = {wanted};
        run.Answer("1", action);
        steps.Connect().Unallocated("1", wanted);
        steps.Act("1", {"service", "unallocated disks"}, action, arguments);
    } else {
        run.service.providers = {{{wanted}}};
        run.Answer("1.1.1", action);
        steps.Connect().QueryProviders().Provider("1").Pack("1.1").Disk("1.1.1", wanted);
        steps.Act("1.1.1", {"providers", "packs 1", "disks 1.1", "service", "unallocated disks"},
                  action, arguments);
    }
    run.Call(what, arguments);
    return Does(run, steps) << ' ' << action.Describe();
}

// --- calls written out by hand, as a check of the steps themselves ---

const std::initializer_list<const char*> all_but_lines = {
    "_time64", "_localtime64", R"(write A ["Status"])", R"(write A ["Log"] "Righe")"};

std::string LogLine(int number, const char* text)
{
    return Format(R"(write A ["Log"] "%d - 05-03-2021 14:00:%02d" = "%s" in ResultFile)", number,
                  2 * (number - 2), text);
}

TEST(CleanDisk, UnallocatedDiskWrittenOut)
{
    DiskRun run({wanted});
    run.platform.Answer("async.Wait", {boot_disk});
    run.service.delivered = S_FALSE;
    run.Call(DiskExport::clean, {.flags = {0, 1, 255}});
    const ExpectedEvents expected{
        "CoInitializeSecurity(NULL, -1, NULL, NULL, 1, 3, NULL, 0x0, NULL) -> 00000000",
        LogLine(2, "Security Coinitialized Result: "),
        LogLine(3, "0"),
        "CoCreateInstance(VdsLoader, NULL, 0x14, IVdsServiceLoader) -> 00000000",
        LogLine(4, "CoCreateInstance HRESULT: "),
        LogLine(5, "0"),
        "loader.LoadService(NULL) -> 00000000",
        "loader.Release() -> 0",
        LogLine(6, "LoadService HRESULT: "),
        LogLine(7, "0"),
        "service.QueryUnallocatedDisks() -> 00000000",
        LogLine(8, "Enumerating Unallocated disks"),
        "unallocated disks.Next(1, slot of 0) -> 00000000",
        "any disk 1.QueryInterface(IVdsDisk) -> 00000000",
        "any disk 1.Release() -> 0",
        LogLine(9, "IID_IVdsDisk query interface HRESULT: "),
        LogLine(10, "0"),
        "disk 1.GetProperties() -> 00000000",
        LogLine(11, "GetProperties HRESULT: "),
        LogLine(12, "0"),
        R"(_wcsnicmp(DiskName, "\\?\PhysicalDrive1", 40))",
        "disk 1.QueryInterface(IVdsAdvancedDisk) -> 00000000",
        LogLine(13, "IVdsAdvancedDisk HRESULT: "),
        LogLine(14, "0"),
        "disk 1.Release() -> 0",
        "advanced disk 1.Clean(0, 1, 255, slot of NULL) -> 00000000",
        LogLine(15, "Clean HRESULT: "),
        LogLine(16, "0"),
        "async.Wait(zeroed output) -> 80042807",
        LogLine(17, "Disk cleaned successfully."),
        "service.Release() -> 0",
        "unallocated disks.Release() -> 0",
        LogLine(18, "All resources were released safely (Inside Main)."),
        "CoUninitialize",
        LogLine(19, "Last HRESULT: "),
        LogLine(20, "1"),
        "returns 00000001",
    };
    EXPECT_TRUE(SameTranscript(expected, run.platform.RecordedWithout(all_but_lines)));
}

TEST(CleanDisk, DiskInAPackWhoseCleanFailsWrittenOut)
{
    DiskRun run({}, {{{wanted}}});
    run.service.delivered = boot_disk;
    run.Call(DiskExport::clean);
    const ExpectedEvents expected{
        "CoInitializeSecurity(NULL, -1, NULL, NULL, 1, 3, NULL, 0x0, NULL) -> 00000000",
        LogLine(2, "Security Coinitialized Result: "),
        LogLine(3, "0"),
        "CoCreateInstance(VdsLoader, NULL, 0x14, IVdsServiceLoader) -> 00000000",
        LogLine(4, "CoCreateInstance HRESULT: "),
        LogLine(5, "0"),
        "loader.LoadService(NULL) -> 00000000",
        "loader.Release() -> 0",
        LogLine(6, "LoadService HRESULT: "),
        LogLine(7, "0"),
        "service.QueryUnallocatedDisks() -> 00000000",
        LogLine(8, "Enumerating Unallocated disks"),
        "unallocated disks.Next(1, slot of 0) -> 00000001",
        LogLine(9, "No more providers in the list of unallocated disks."),
        "service.QueryProviders(0x1) -> 00000000",
        LogLine(10, "Querying software providers..."),
        "providers.Next(1, slot of 0) -> 00000000",
        LogLine(11, "Querying IVdsProvider interface..."),
        "any provider 1.QueryInterface(IVdsProvider) -> 00000000",
        "any provider 1.Release() -> 0",
        "provider 1.GetProperties() -> 00000000",
        "provider 1.QueryInterface(IVdsSwProvider) -> 00000000",
        "provider 1.Release() -> 0",
        LogLine(12, "Querying packs..."),
        "software provider 1.QueryPacks() -> 00000000",
        "software provider 1.Release() -> 0",
        "packs 1.Next(1, slot of 0) -> 00000000",
        R"(console narrow "Pack #: 1\n")",
        "any pack 1.1.QueryInterface(IVdsPack) -> 00000000",
        "any pack 1.1.Release() -> 0",
        "pack 1.1.GetProperties() -> 00000000",
        "pack 1.1.QueryDisks() -> 00000000",
        "disks 1.1.Next(1, slot of 0) -> 00000000",
        R"(console narrow "Disk #: 1\n")",
        "any disk 1.1.1.QueryInterface(IVdsDisk) -> 00000000",
        "any disk 1.1.1.Release() -> 0",
        "disk 1.1.1.GetProperties() -> 00000000",
        R"(_wcsnicmp(DiskName, "\\?\PhysicalDrive1", 40))",
        "disk 1.1.1.QueryInterface(IVdsAdvancedDisk) -> 00000000",
        "disk 1.1.1.Release() -> 0",
        "advanced disk 1.1.1.Clean(1, 0, 1, slot of NULL) -> 00000000",
        LogLine(13, "Clean HRESULT: "),
        LogLine(14, "0"),
        "async.Wait(zeroed output) -> 00000000",
        LogLine(15, "Failed to clean disk."),
        "returns 80042807",
    };
    EXPECT_TRUE(SameTranscript(expected, run.platform.RecordedWithout(all_but_lines)));
}

TEST(OfflineDisk, DiskInAPackWrittenOut)
{
    DiskRun run({}, {{{wanted}}});
    run.platform.Answer("online disk 1.1.1.Offline", {dismount_failed});
    run.Call(DiskExport::offline);
    const ExpectedEvents expected{
        "CoInitializeSecurity(NULL, -1, NULL, NULL, 1, 3, NULL, 0x0, NULL) -> 00000000",
        "CoCreateInstance(VdsLoader, NULL, 0x14, IVdsServiceLoader) -> 00000000",
        "loader.LoadService(NULL) -> 00000000",
        "loader.Release() -> 0",
        "service.QueryUnallocatedDisks() -> 00000000",
        "unallocated disks.Next(1, slot of 0) -> 00000001",
        "service.QueryProviders(0x1) -> 00000000",
        "providers.Next(1, slot of 0) -> 00000000",
        "any provider 1.QueryInterface(IVdsProvider) -> 00000000",
        "any provider 1.Release() -> 0",
        "provider 1.GetProperties() -> 00000000",
        "provider 1.QueryInterface(IVdsSwProvider) -> 00000000",
        "provider 1.Release() -> 0",
        "software provider 1.QueryPacks() -> 00000000",
        "software provider 1.Release() -> 0",
        "packs 1.Next(1, slot of 0) -> 00000000",
        "any pack 1.1.QueryInterface(IVdsPack) -> 00000000",
        "any pack 1.1.Release() -> 0",
        "pack 1.1.GetProperties() -> 00000000",
        "pack 1.1.QueryDisks() -> 00000000",
        "disks 1.1.Next(1, slot of 0) -> 00000000",
        "any disk 1.1.1.QueryInterface(IVdsDisk) -> 00000000",
        "any disk 1.1.1.Release() -> 0",
        "disk 1.1.1.GetProperties() -> 00000000",
        R"(_wcsnicmp(DiskName, "\\?\PhysicalDrive1", 40))",
        "disk 1.1.1.QueryInterface(IVdsDiskOnline) -> 00000000",
        "online disk 1.1.1.Offline() -> 00042809",
        "providers.Release() -> 0",
        "packs 1.Release() -> 0",
        "disks 1.1.Release() -> 0",
        "service.Release() -> 0",
        "unallocated disks.Release() -> 0",
        "CoUninitialize",
        "returns 00042809",
    };
    EXPECT_TRUE(SameTranscript(expected, run.platform.Recorded()));
}

// --- every answer ---

TEST(CleanDisk, EveryCombinationOfAnswers)
{
    const HRESULT results[] = {S_OK, S_FALSE, properties_incomplete, boot_disk, smallest};
    for (const bool unallocated : {true, false})
        for (const HRESULT query : results)
            for (const HRESULT clean : results)
                for (const HRESULT wait : {S_OK, rpc_unavailable})
                    for (const HRESULT delivered : results)
                        for (const bool gives_async : {true, false})
                            ASSERT_TRUE(ActsAsItHasTo(DiskExport::clean, unallocated,
                                                      {.query = query,
                                                       .act = clean,
                                                       .wait = wait,
                                                       .delivered = delivered,
                                                       .gives_async = gives_async}));
}

TEST(OnlineDiskAndOfflineDisk, EveryCombinationOfAnswers)
{
    const HRESULT results[] = {S_OK, S_FALSE, dismount_failed, disk_offline, smallest};
    for (const DiskExport what : disk_switches)
        for (const bool unallocated : {true, false})
            for (const HRESULT query : results)
                for (const HRESULT act : results)
                    ASSERT_TRUE(ActsAsItHasTo(what, unallocated, {.query = query, .act = act}));
}

// A failure like any other of the call that would have been made through it.
TEST(DiskAction, InterfaceThatIsNotThere)
{
    for (const DiskExport what : disk_exports)
        for (const bool unallocated : {true, false})
            EXPECT_TRUE(ActsAsItHasTo(what, unallocated, {.gives_interface = false}));
}

// --- arguments ---

TEST(CleanDisk, FlagsArriveAsTheyAreAndInOrder)
{
    const unsigned char values[] = {0, 1, 2, 255};
    for (const bool unallocated : {true, false})
        for (const unsigned char force : values)
            for (const unsigned char force_oem : values)
                for (const unsigned char full : values)
                    ASSERT_TRUE(ActsAsItHasTo(DiskExport::clean, unallocated, {},
                                              {.flags = {force, force_oem, full}}));
}

TEST(CleanDisk, NullResultFileIsPassedOn)
{
    DiskRun run({wanted});
    run.Call(DiskExport::clean, {.result_file = nullptr});
    DiskSteps steps(DiskExport::clean, "NULL");
    steps.Connect().Unallocated("1", wanted).Act("1", {"service", "unallocated disks"});
    EXPECT_TRUE(Does(run, steps));
}

} // namespace
} // namespace kestro::test
