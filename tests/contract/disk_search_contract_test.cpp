// disk_search_contract_test.cpp - how CleanDisk, OnlineDisk and OfflineDisk find a disk.
#include "contract/disk_case.h"
#include "contract/outcome.h"

namespace kestro::test {
namespace {

constexpr const wchar_t* wanted = L"\\\\?\\PhysicalDrive1";
constexpr const wchar_t* other = L"\\\\?\\PhysicalDrive2";

// What the common exit releases: after the unallocated disks, and after the packs.
const std::vector<const char*> unallocated_only{"service", "unallocated disks"};
const std::vector<const char*> everything{"providers", "packs 1", "disks 1.1", "service",
                                          "unallocated disks"};

// --- where a disk can be ---

TEST(DiskSearch, NoDisksAndNoProviders)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run;
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().QueryProviders().End("providers");
        EXPECT_TRUE(Does(run, steps.NotFound({"providers", "service", "unallocated disks"})));
    }
}

TEST(DiskSearch, ProviderWithoutPacksAndPackWithoutDisks)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({}, {{}, {{}}});
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().QueryProviders().Provider("1").End("packs 1");
        steps.Provider("2").Pack("2.1").End("disks 2.1").End("packs 2").End("providers");
        EXPECT_TRUE(Does(run, steps.NotFound({"providers", "packs 2", "disks 2.1", "service",
                                              "unallocated disks"})));
    }
}

// Numbers start again with each provider and each pack, and the common exit releases the latest of
// each kind, even if it belongs to an earlier provider.
TEST(DiskSearch, GoesThroughEverything)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({L"A", L"B", L"C"}, {{{L"D", L"E"}, {L"F"}}, {{L"G"}, {}, {L"H", L"I"}}, {}});
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().Unallocated("1", L"A").Unallocated("2", L"B").Unallocated("3", L"C");
        steps.QueryProviders().Provider("1");
        steps.Pack("1.1").Disk("1.1.1", L"D").Disk("1.1.2", L"E").End("disks 1.1");
        steps.Pack("1.2").Disk("1.2.1", L"F").End("disks 1.2").End("packs 1");
        steps.Provider("2").Pack("2.1").Disk("2.1.1", L"G").End("disks 2.1");
        steps.Pack("2.2").End("disks 2.2");
        steps.Pack("2.3").Disk("2.3.1", L"H").Disk("2.3.2", L"I").End("disks 2.3");
        steps.End("packs 2").Provider("3").End("packs 3").End("providers");
        EXPECT_TRUE(Does(run, steps.NotFound({"providers", "packs 3", "disks 2.3", "service",
                                              "unallocated disks"})));
    }
}

TEST(DiskSearch, LaterUnallocatedDisk)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({other, L"B", wanted, wanted});
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().Unallocated("1", other).Unallocated("2", L"B").Unallocated("3", wanted);
        EXPECT_TRUE(Does(run, steps.Act("3", unallocated_only)));
    }
}

TEST(DiskSearch, LaterDiskOfALaterPackOfALaterProvider)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({other}, {{{L"B"}}, {{L"C"}, {L"D", wanted, wanted}, {wanted}}, {{wanted}}});
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().Unallocated("1", other).QueryProviders();
        steps.Provider("1").Pack("1.1").Disk("1.1.1", L"B").End("disks 1.1").End("packs 1");
        steps.Provider("2").Pack("2.1").Disk("2.1.1", L"C").End("disks 2.1");
        steps.Pack("2.2").Disk("2.2.1", L"D").Disk("2.2.2", wanted);
        steps.Act("2.2.2", {"providers", "packs 2", "disks 2.2", "service", "unallocated disks"});
        EXPECT_TRUE(Does(run, steps));
    }
}

TEST(DiskSearch, UnallocatedDiskIsNotLookedForInPacks)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({wanted}, {{{wanted}}});
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().Unallocated("1", wanted);
        EXPECT_TRUE(Does(run, steps.Act("1", unallocated_only)));
    }
}

// --- names ---

// A search among one unallocated disk and one disk in a pack for one of the two; null: neither.
testing::AssertionResult Finds(DiskExport what, const wchar_t* name, const DiskNames& disks,
                               const char* found)
{
    DiskRun run({disks[0]}, {{{disks[1]}}});
    const DiskCase arguments{.disk = name};
    run.Call(what, arguments);
    DiskSteps steps(what);
    const auto compare = [&](const wchar_t* disk_name) {
        if (name && disk_name)
            steps.Compare(disk_name);
    };
    steps.Connect().NextUnallocated().ConvertUnallocated("1").UnallocatedProperties("1");
    compare(disks[0]);
    if (found == std::string("1"))
        return Does(run, steps.Act(found, unallocated_only));
    steps.QueryProviders().Provider("1").Pack("1.1").NextDisk("1.1.1");
    steps.Convert("disk 1.1.1", "IVdsDisk").DiskProperties("1.1.1");
    compare(disks[1]);
    if (found == std::string("1.1.1"))
        return Does(run, steps.Act(found, everything));
    steps.End("disks 1.1").End("packs 1").End("providers");
    return Does(run, steps.NotFound(everything));
}

#define FORTY L"0123456789abcdefghijABCDEFGHIJ!@#$%&/()="

TEST(DiskSearch, NamesMatchWithoutCaseAndUpToFortyCharacters)
{
    static_assert(sizeof FORTY / sizeof(wchar_t) == 40 + 1);
    const struct {
        const wchar_t* name;
        const wchar_t* disk;
        bool match;
    } rows[] = {
        {wanted, wanted, true},
        {wanted, other, false},
        {L"\\\\?\\physicaldrive1", L"\\\\?\\PHYSICALDRIVE1", true},
        {L"\\\\?\\PhysicalDrive1", L"\\\\?\\PhysicalDrive10", false},
        {L"\\\\?\\PhysicalDrive10", L"\\\\?\\PhysicalDrive1", false},
        {L"harddisk7", L"HARDDISK7", true},
        {L"HardDisk7", L"hARDdISK7", true},
        {L"Disk", L" Disk", false},
        {L"", L"", true},
        {L"", L"Disk", false},
        {L"Disk", L"", false},
        {FORTY, FORTY, true},
        {FORTY, FORTY L"1", true},
        {FORTY L"and one end", FORTY, true},
        {FORTY L"and one end", FORTY L"or another", true},
        {L"0123456789ABCDEFGHIJabcdefghij!@#$%&/()=1", FORTY L"2", true},
        {L"0123456789abcdefghijABCDEFGHIJ!@#$%&/()", FORTY, false},
        {L"0123456789abcdefghijABCDEFGHIJ!@#$%&/()?", FORTY, false},
    };
    for (const auto& [name, disk, match] : rows)
        for (const DiskExport what : disk_exports) {
            EXPECT_TRUE(Finds(what, name, {disk, L"no"}, match ? "1" : ""));
            EXPECT_TRUE(Finds(what, name, {L"no", disk}, match ? "1.1.1" : ""));
        }
}

TEST(DiskSearch, NothingMatchesWithoutAName)
{
    for (const DiskExport what : disk_exports) {
        EXPECT_TRUE(Finds(what, nullptr, {wanted, other}, ""));
        EXPECT_TRUE(Finds(what, nullptr, {nullptr, nullptr}, ""));
        EXPECT_TRUE(Finds(what, wanted, {nullptr, nullptr}, ""));
        EXPECT_TRUE(Finds(what, wanted, {nullptr, wanted}, "1.1.1"));
    }
}

TEST(DiskSearch, OtherTextsOfADiskDoNotCount)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({other, wanted});
        run.service.decoy = wanted;
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().Unallocated("1", other).Unallocated("2", wanted);
        EXPECT_TRUE(Does(run, steps.Act("2", unallocated_only)));
    }
}

// --- results that do not end the search ---

TEST(DiskSearch, SecurityThatCannotBeInitialised)
{
    for (const DiskExport what : disk_exports)
        for (const HRESULT security : {S_FALSE, smallest, static_cast<HRESULT>(0x80010119)}) {
            DiskRun run({wanted});
            run.platform.Answer("CoInitializeSecurity", {security});
            run.Call(what);
            DiskSteps steps(what);
            steps.CreateLoader(S_OK, security).LoadService().QueryUnallocated();
            steps.Unallocated("1", wanted);
            EXPECT_TRUE(Does(run, steps.Act("1", unallocated_only)));
        }
}

// Every call of the connection and the search reports a success other than S_OK.
TEST(DiskSearch, OtherSuccesses)
{
    const char* const nexts[] = {"unallocated disks", "providers", "packs 1", "disks 1.1"};
    const char* const calls[] = {"CoCreateInstance",
                                 "loader.LoadService",
                                 "service.QueryUnallocatedDisks",
                                 "any disk 1.QueryInterface",
                                 "disk 1.GetProperties",
                                 "service.QueryProviders",
                                 "any provider 1.QueryInterface",
                                 "provider 1.GetProperties",
                                 "provider 1.QueryInterface",
                                 "software provider 1.QueryPacks",
                                 "any pack 1.1.QueryInterface",
                                 "pack 1.1.GetProperties",
                                 "pack 1.1.QueryDisks",
                                 "any disk 1.1.1.QueryInterface",
                                 "disk 1.1.1.GetProperties"};
    const HRESULT next = properties_incomplete;
    for (const DiskExport what : disk_exports)
        for (const HRESULT code : {S_FALSE, properties_incomplete}) {
            DiskRun run({other}, {{{wanted}}});
            for (const char* enumerator : nexts)
                run.platform.Answer(enumerator + std::string(".Next"), {next});
            for (const char* call : calls)
                run.platform.Answer(call, {code});
            run.Call(what);

            DiskSteps steps(what);
            steps.CreateLoader(code).LoadService(code).QueryUnallocated(code);
            steps.NextUnallocated(next).ConvertUnallocated("1", code);
            steps.UnallocatedProperties("1", code).Compare(other).QueryProviders(code);
            steps.NextProvider(next).ConvertProvider("1", code).ProviderProperties("1", code);
            steps.ConvertToSoftware("1", code).QueryPacks("1", code);
            steps.NextPack("1.1", next).Convert("pack 1.1", "IVdsPack", code);
            steps.QueryDisks("1.1", code, code).NextDisk("1.1.1", next);
            steps.Convert("disk 1.1.1", "IVdsDisk", code).DiskProperties("1.1.1", code);
            EXPECT_TRUE(Does(run, steps.Compare(wanted).Act("1.1.1", everything)));
        }
}

TEST(DiskSearch, UntestedFailuresThatGiveTheirObject)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({other}, {{{wanted}}});
        for (const char* call :
             {"service.QueryUnallocatedDisks", "unallocated disks.Next", "pack 1.1.GetProperties",
              "pack 1.1.QueryDisks", "disk 1.1.1.GetProperties"})
            run.platform.Answer(call, {smallest});
        run.service.given_anyway = {"unallocated disks", "any disk 1", "disks 1.1",
                                    "name of disk 1.1.1"};
        run.Call(what);
        DiskSteps steps(what);
        steps.CreateLoader().LoadService().QueryUnallocated(smallest);
        steps.NextUnallocated(smallest).ConvertUnallocated("1").UnallocatedProperties("1");
        steps.Compare(other).QueryProviders().Provider("1").NextPack("1.1");
        steps.Convert("pack 1.1", "IVdsPack").QueryDisks("1.1", smallest, smallest);
        steps.NextDisk("1.1.1").Convert("disk 1.1.1", "IVdsDisk");
        steps.DiskProperties("1.1.1", smallest).Compare(wanted);
        EXPECT_TRUE(Does(run, steps.Act("1.1.1", everything)));
    }
}

// A disk in a pack that hides its properties has no name, not that of the disk before it.
TEST(DiskSearch, DiskInAPackThatHidesItsPropertiesIsPassedOver)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({}, {{{other, wanted, wanted}}});
        run.platform.Answer("disk 1.1.2.GetProperties", {rpc_unavailable});
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().QueryProviders().Provider("1").Pack("1.1").Disk("1.1.1", other);
        steps.NextDisk("1.1.2").Convert("disk 1.1.2", "IVdsDisk");
        steps.DiskProperties("1.1.2", rpc_unavailable).Disk("1.1.3", wanted);
        EXPECT_TRUE(Does(run, steps.Act("1.1.3", everything)));
    }
}

// --- objects that are not there ---

TEST(DiskSearch, EnumeratorsThatAreNotThereAreExhausted)
{
    for (const DiskExport what : disk_exports) {
        DiskRun without_unallocated({wanted}, {{{wanted}}});
        without_unallocated.service.withheld.insert("unallocated disks");
        without_unallocated.Call(what);
        DiskSteps steps(what);
        steps.Connect().Log("Enumerating Unallocated disks");
        steps.Log("No more providers in the list of unallocated disks.");
        steps.Call("service.QueryProviders(0x1)").Log("Querying software providers...");
        steps.Provider("1").Pack("1.1").Disk("1.1.1", wanted);
        steps.Act("1.1.1", {"providers", "packs 1", "disks 1.1", "service"});
        EXPECT_TRUE(Does(without_unallocated, steps));
    }
    for (const DiskExport what : disk_exports) {
        DiskRun without_providers({other}, {{{wanted}}});
        without_providers.service.withheld.insert("providers");
        without_providers.Call(what);
        DiskSteps steps(what);
        steps.Connect().Unallocated("1", other).QueryProviders();
        EXPECT_TRUE(Does(without_providers, steps.NotFound(unallocated_only)));
    }
    for (const DiskExport what : disk_exports) {
        DiskRun without_packs({}, {{{other}}, {{wanted}}});
        without_packs.service.withheld.insert("packs 2");
        without_packs.Call(what);
        DiskSteps steps(what);
        steps.Connect().QueryProviders().Provider("1").Pack("1.1").Disk("1.1.1", other);
        steps.End("disks 1.1").End("packs 1").Provider("2").End("providers");
        steps.NotFound({"providers", "disks 1.1", "service", "unallocated disks"});
        EXPECT_TRUE(Does(without_packs, steps));
    }
}

// The disks of the pack before it are not taken for its own.
TEST(DiskSearch, PackThatGivesNoDisks)
{
    for (const DiskExport what : disk_exports)
        for (const bool fails : {true, false}) {
            DiskRun run({}, {{{other}, {wanted}, {wanted}}});
            if (fails)
                run.platform.Answer("pack 1.2.QueryDisks", {smallest});
            else
                run.service.withheld.insert("disks 1.2");
            run.Call(what);
            DiskSteps steps(what);
            steps.Connect().QueryProviders().Provider("1").Pack("1.1").Disk("1.1.1", other);
            steps.End("disks 1.1").NextPack("1.2").Convert("pack 1.2", "IVdsPack");
            steps.QueryDisks("1.2", S_OK, fails ? smallest : S_OK);
            steps.Pack("1.3").Disk("1.3.1", wanted);
            steps.Act("1.3.1",
                      {"providers", "packs 1", "disks 1.3", "service", "unallocated disks"});
            EXPECT_TRUE(Does(run, steps));
        }
}

TEST(DiskSearch, PacksAndTheirDisksThatAreNotThereArePassedOver)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({}, {{{other}, {wanted}, {other, wanted}}});
        run.service.withheld = {"pack 1.2", "disk 1.3.1"};
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().QueryProviders().Provider("1").Pack("1.1").Disk("1.1.1", other);
        steps.End("disks 1.1").NextPack("1.2").Convert("pack 1.2", "IVdsPack");
        steps.Pack("1.3").NextDisk("1.3.1").Convert("disk 1.3.1", "IVdsDisk");
        steps.Disk("1.3.2", wanted);
        steps.Act("1.3.2", {"providers", "packs 1", "disks 1.3", "service", "unallocated disks"});
        EXPECT_TRUE(Does(run, steps));
    }
}

// --- the thread's COM ---

bool ComInitialised()
{
    APTTYPE type;
    APTTYPEQUALIFIER qualifier;
    return CoGetApartmentType(&type, &qualifier) == S_OK;
}

TEST(DiskSearch, CommonExitConsumesOneInitialisationOfTheThread)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({}, {}, {"CoUninitialize"});
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE);
        run.Call(what);
        EXPECT_TRUE(ComInitialised());
        run.Call(what);
        EXPECT_FALSE(ComInitialised());
    }
}

TEST(DiskSearch, FailureAtOnceLeavesTheThreadInitialised)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({}, {}, {"CoUninitialize"});
        run.platform.Answer("service.QueryProviders", {rpc_unavailable});
        ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
        run.Call(what);
        EXPECT_TRUE(ComInitialised());
        CoUninitialize();
        EXPECT_FALSE(ComInitialised());
    }
}

} // namespace
} // namespace kestro::test
