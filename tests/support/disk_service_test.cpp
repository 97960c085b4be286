// disk_service_test.cpp - the scripted disk service itself: that it sees what must not be done to it.
#include "support/disk_service.h"

#include "vds_interfaces.h"

#include <gtest/gtest-spi.h>

namespace kestro::test {
namespace {

// The library's way to the service, up to its unallocated disks.
class DiskServiceTest : public testing::Test {
  protected:
    void SetUp() override
    {
        service.unallocated = {L"Disk"};
        auto* loader = static_cast<IVdsServiceLoader*>(service.MakeLoader());
        ASSERT_EQ(loader->LoadService(nullptr, &vds), S_OK);
        ASSERT_EQ(vds->QueryUnallocatedDisks(&disks), S_OK);
    }

    Platform platform;
    DiskService service;
    IVdsService* vds = nullptr;
    IEnumVdsObject* disks = nullptr;
    IUnknown* fetched = nullptr;
    ULONG count = 0;
};

TEST_F(DiskServiceTest, CountsReferences)
{
    vds->AddRef();
    vds->Release();
    vds->Release();
    EXPECT_THAT(platform.Recorded(),
                testing::ElementsAre("loader.LoadService(NULL) -> 00000000",
                                     "service.QueryUnallocatedDisks() -> 00000000",
                                     "service.AddRef() -> 2", "service.Release() -> 1",
                                     "service.Release() -> 0"));
}

TEST_F(DiskServiceTest, UseAfterTheLastReleaseFailsTheTest)
{
    vds->Release();
    EXPECT_NONFATAL_FAILURE(vds->Release(), "service.Release after the last release");
    disks->Release();
    EXPECT_NONFATAL_FAILURE(disks->Next(1, &fetched, &count),
                            "unallocated disks.Next(1, slot of 0) after the last release");
}

TEST_F(DiskServiceTest, CallThroughAnotherSlotFailsTheTest)
{
    EXPECT_NONFATAL_FAILURE(vds->WaitForServiceReady(),
                            "unexpected call of service.WaitForServiceReady");
    EXPECT_NONFATAL_FAILURE(disks->Reset(), "unexpected call of unallocated disks.Reset");
}

TEST_F(DiskServiceTest, NextAfterTheEndFailsTheTest)
{
    EXPECT_EQ(disks->Next(1, &fetched, &count), S_OK);
    EXPECT_EQ(disks->Next(1, &fetched, &count), S_FALSE);
    EXPECT_NONFATAL_FAILURE(disks->Next(1, &fetched, &count),
                            "unallocated disks.Next after its end");
}

TEST_F(DiskServiceTest, ObjectsHaveNoInterfacesButTheirOwn)
{
    ASSERT_EQ(disks->Next(1, &fetched, &count), S_OK);
    void* nothing = nullptr;
    EXPECT_EQ(fetched->QueryInterface(__uuidof(IVdsPack), &nothing), E_NOINTERFACE);
    EXPECT_EQ(fetched->QueryInterface(__uuidof(IVdsDisk), &nothing), S_OK);
}

} // namespace
} // namespace kestro::test
