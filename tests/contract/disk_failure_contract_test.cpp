// disk_failure_contract_test.cpp - CleanDisk, OnlineDisk and OfflineDisk when the connection or the
// search fails.
#include "contract/disk_case.h"
#include "contract/outcome.h"

namespace kestro::test {
namespace {

// How CleanDisk leaves. The other exports return the HRESULT at once, whatever fails.
enum class CleanExit { zero_at_once, zero_by_common_exit, result_at_once };
using enum CleanExit;

struct Failure {
    std::function<void(DiskRun&, HRESULT)> script;
    std::function<void(DiskSteps&, HRESULT)> steps; // up to the failure
    const char* line;                               // CleanDisk's own; null: none
    CleanExit clean_exit;
    std::vector<const char*> releases{}; // by the common exit
};

// The call fails after so many successes.
std::function<void(DiskRun&, HRESULT)> Fails(const char* call, size_t successes = 0)
{
    return [=](DiskRun& run, HRESULT result) {
        std::vector<HRESULT> answers(successes, S_OK);
        answers.push_back(result);
        run.platform.Answer(call, answers);
    };
}

std::function<void(DiskRun&, HRESULT)> Withholds(const char* object)
{
    return [=](DiskRun& run, HRESULT) { run.service.withheld.insert(object); };
}

// A service with one other disk in each place.
testing::AssertionResult FailsAsItHasTo(const Failure& failure, DiskExport what, HRESULT result)
{
    DiskRun run({L"Disk A"}, {{{L"Disk B"}}});
    failure.script(run, result);
    run.Call(what);

    DiskSteps steps(what);
    failure.steps(steps, result);
    if (failure.line)
        steps.Log(failure.line);
    if (what != DiskExport::clean || failure.clean_exit == result_at_once)
        return Does(run, steps.Returns(result));
    if (failure.clean_exit == zero_by_common_exit)
        steps.CommonExit(failure.releases, result);
    return Does(run, steps.Returns(0));
}

const char* const no_loader = "CoCreateInstance failed";
const char* const no_service = "LoadService failed";
const char* const no_disk = "Failed to query IID_IVdsDisk interface";
const char* const no_properties = "Failed to get disk properties.";
const char* const no_providers = "Error in querying software providers...";
const char* const no_packs = "Error in querying packs...";

DiskSteps& ToProviders(DiskSteps& steps)
{
    return steps.Connect().Unallocated("1", L"Disk A").QueryProviders();
}

DiskSteps& ToPacks(DiskSteps& steps)
{
    return ToProviders(steps).Provider("1");
}

DiskSteps& ToDisks(DiskSteps& steps)
{
    return ToPacks(steps).Pack("1.1");
}

const std::vector<Failure> failures{
    {Fails("CoCreateInstance"), [](auto& steps, HRESULT result) { steps.CreateLoader(result); },
     no_loader, zero_at_once},
    {Fails("loader.LoadService"),
     [](auto& steps, HRESULT result) { steps.CreateLoader().LoadService(result); }, no_service,
     zero_by_common_exit},

    {Fails("any disk 1.QueryInterface"),
     [](auto& steps, HRESULT result) {
         steps.Connect().NextUnallocated().ConvertUnallocated("1", result);
     },
     no_disk,
     zero_by_common_exit,
     {"service", "unallocated disks"}},
    {Fails("disk 1.GetProperties"),
     [](auto& steps, HRESULT result) {
         steps.Connect().NextUnallocated().ConvertUnallocated("1");
         steps.UnallocatedProperties("1", result);
     },
     no_properties,
     zero_by_common_exit,
     {"service", "unallocated disks"}},

    {Fails("service.QueryProviders"),
     [](auto& steps, HRESULT result) {
         steps.Connect().Unallocated("1", L"Disk A").QueryProviders(result);
     },
     nullptr, result_at_once},
    {Fails("providers.Next"),
     [](auto& steps, HRESULT result) { ToProviders(steps).NextProvider(result); }, no_providers,
     result_at_once},
    {Fails("any provider 1.QueryInterface"),
     [](auto& steps, HRESULT result) {
         ToProviders(steps).NextProvider().ConvertProvider("1", result);
     },
     nullptr, result_at_once},
    {Fails("provider 1.GetProperties"),
     [](auto& steps, HRESULT result) {
         ToProviders(steps).NextProvider().ConvertProvider("1").ProviderProperties("1", result);
     },
     nullptr, result_at_once},
    {Fails("provider 1.QueryInterface"),
     [](auto& steps, HRESULT result) {
         ToProviders(steps).NextProvider().ConvertProvider("1").ProviderProperties("1");
         steps.ConvertToSoftware("1", result);
     },
     nullptr, result_at_once},
    {Fails("software provider 1.QueryPacks"),
     [](auto& steps, HRESULT result) {
         ToProviders(steps).NextProvider().ConvertProvider("1").ProviderProperties("1");
         steps.ConvertToSoftware("1").QueryPacks("1", result);
     },
     no_packs, result_at_once},

    {Fails("packs 1.Next"),
     [](auto& steps, HRESULT result) { ToPacks(steps).NextPack("1.1", result); }, nullptr,
     result_at_once},
    {Fails("any pack 1.1.QueryInterface"),
     [](auto& steps, HRESULT result) {
         ToPacks(steps).NextPack("1.1").Convert("pack 1.1", "IVdsPack", result);
     },
     nullptr, result_at_once},
    {Fails("disks 1.1.Next"),
     [](auto& steps, HRESULT result) { ToDisks(steps).NextDisk("1.1.1", result); }, nullptr,
     result_at_once},
    {Fails("any disk 1.1.1.QueryInterface"),
     [](auto& steps, HRESULT result) {
         ToDisks(steps).NextDisk("1.1.1").Convert("disk 1.1.1", "IVdsDisk", result);
     },
     nullptr, result_at_once},

    // Where an earlier object of the kind was fine.
    {Fails("disks 1.1.Next", 1),
     [](auto& steps, HRESULT result) {
         ToDisks(steps).Disk("1.1.1", L"Disk B").NextDisk("1.1.2", result);
     },
     nullptr, result_at_once},
    {Fails("packs 1.Next", 1),
     [](auto& steps, HRESULT result) {
         ToDisks(steps).Disk("1.1.1", L"Disk B").End("disks 1.1").NextPack("1.2", result);
     },
     nullptr, result_at_once},
    {Fails("providers.Next", 1),
     [](auto& steps, HRESULT result) {
         ToDisks(steps).Disk("1.1.1", L"Disk B").End("disks 1.1").End("packs 1");
         steps.NextProvider(result);
     },
     no_providers, result_at_once},
};

TEST(DiskFailure, EveryCallOfTheConnectionAndTheSearch)
{
    for (const Failure& failure : failures)
        for (const DiskExport what : disk_exports)
            for (const HRESULT result : {rpc_unavailable, smallest, static_cast<HRESULT>(-1)})
                EXPECT_TRUE(FailsAsItHasTo(failure, what, result));
}

// Objects that the service does not give although it reports success.
const std::vector<Failure> missing_objects{
    {Withholds("loader"),
     [](auto& steps, HRESULT result) {
         steps.CreateLoader().LogNumber("LoadService HRESULT: ", result);
     },
     no_service, zero_by_common_exit},
    {Withholds("service"),
     [](auto& steps, HRESULT) {
         steps.CreateLoader().LoadService().Log("Enumerating Unallocated disks");
         steps.Log("No more providers in the list of unallocated disks.");
     },
     nullptr, result_at_once},
    {Withholds("any disk 1"),
     [](auto& steps, HRESULT result) {
         steps.Connect().NextUnallocated();
         steps.LogNumber("IID_IVdsDisk query interface HRESULT: ", result);
     },
     no_disk,
     zero_by_common_exit,
     {"service", "unallocated disks"}},
    {Withholds("disk 1"),
     [](auto& steps, HRESULT result) {
         steps.Connect().NextUnallocated().ConvertUnallocated("1");
         steps.LogNumber("GetProperties HRESULT: ", result);
     },
     no_properties,
     zero_by_common_exit,
     {"service", "unallocated disks"}},
    {Withholds("any provider 1"),
     [](auto& steps, HRESULT) {
         ToProviders(steps).NextProvider().Log("Querying IVdsProvider interface...");
     },
     nullptr, result_at_once},
    {Withholds("provider 1"),
     [](auto& steps, HRESULT) { ToProviders(steps).NextProvider().ConvertProvider("1"); }, nullptr,
     result_at_once},
    {Withholds("software provider 1"),
     [](auto& steps, HRESULT) {
         ToProviders(steps).NextProvider().ConvertProvider("1").ProviderProperties("1");
         steps.ConvertToSoftware("1").Log("Querying packs...");
     },
     no_packs, result_at_once},
    {Withholds("any pack 1.1"), [](auto& steps, HRESULT) { ToPacks(steps).NextPack("1.1"); },
     nullptr, result_at_once},
    {Withholds("any disk 1.1.1"), [](auto& steps, HRESULT) { ToDisks(steps).NextDisk("1.1.1"); },
     nullptr, result_at_once},
};

TEST(DiskFailure, ObjectsThatAreNotThere)
{
    for (const Failure& failure : missing_objects)
        for (const DiskExport what : disk_exports)
            EXPECT_TRUE(FailsAsItHasTo(failure, what, null_object));
}

// Among the unallocated disks only the missing object tells of the failure.
TEST(DiskFailure, FailingNextOfTheUnallocatedDisks)
{
    const Failure failure{Fails("unallocated disks.Next"),
                          [](auto& steps, HRESULT result) {
                              steps.Connect().NextUnallocated(result);
                              steps.LogNumber("IID_IVdsDisk query interface HRESULT: ", result);
                          },
                          no_disk,
                          zero_by_common_exit,
                          {"service", "unallocated disks"}};
    for (const DiskExport what : disk_exports)
        EXPECT_TRUE(FailsAsItHasTo(failure, what, rpc_unavailable));
}

TEST(DiskFailure, FailedLoadThatGivesAService)
{
    const Failure failure{
        [](DiskRun& run, HRESULT result) {
            run.platform.Answer("loader.LoadService", {result});
            run.service.given_anyway.insert("service");
        },
        [](auto& steps, HRESULT result) { steps.CreateLoader().LoadService(result); },
        no_service,
        zero_by_common_exit,
        {"service"}};
    for (const DiskExport what : disk_exports)
        EXPECT_TRUE(FailsAsItHasTo(failure, what, rpc_unavailable));
}

// The properties count for nothing once getting them failed, even with the right name in them.
TEST(DiskFailure, UnallocatedDiskWithFailingPropertiesIsNoMatch)
{
    for (const DiskExport what : disk_exports) {
        DiskRun run({DiskCase{}.disk});
        run.platform.Answer("disk 1.GetProperties", {smallest});
        run.service.given_anyway.insert("name of disk 1");
        run.Call(what);
        DiskSteps steps(what);
        steps.Connect().NextUnallocated().ConvertUnallocated("1");
        steps.UnallocatedProperties("1", smallest).Log(no_properties);
        if (what == DiskExport::clean)
            steps.CommonExit({"service", "unallocated disks"}, smallest).Returns(0);
        else
            steps.Returns(smallest);
        EXPECT_TRUE(Does(run, steps));
    }
}

} // namespace
} // namespace kestro::test
