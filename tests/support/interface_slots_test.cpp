// interface_slots_test.cpp - where each method of the disk service's interfaces lies in its table, by the
// published order. The doubles are made from the same header as the library; this is what pins it.
#include <gtest/gtest.h>
#include <vds_interfaces.h>

#include <cstdint>
#include <cstring>

namespace {

// A pointer to a virtual method holds its distance from the table's start, plus one.
template <typename Method>
std::size_t Slot(Method method)
{
    std::uint64_t parts[2] = {};
    static_assert(sizeof method == sizeof parts);
    std::memcpy(parts, &method, sizeof parts);
    EXPECT_EQ(parts[1], 0u) << "not the interface's first base";
    return (parts[0] - 1) / sizeof(void*);
}

// IUnknown's three come first.
constexpr std::size_t first = 3;

TEST(InterfaceSlots, MethodsThatTheLibraryCalls)
{
    EXPECT_EQ(Slot(&IUnknown::AddRef), 1u);
    EXPECT_EQ(Slot(&IUnknown::Release), 2u);
    EXPECT_EQ(Slot(&IVdsServiceLoader::LoadService), first);
    EXPECT_EQ(Slot(&IVdsService::QueryProviders), first + 3);
    EXPECT_EQ(Slot(&IVdsService::QueryUnallocatedDisks), first + 5);
    EXPECT_EQ(Slot(&IEnumVdsObject::Next), first);
    EXPECT_EQ(Slot(&IVdsProvider::GetProperties), first);
    EXPECT_EQ(Slot(&IVdsSwProvider::QueryPacks), first);
    EXPECT_EQ(Slot(&IVdsPack::GetProperties), first);
    EXPECT_EQ(Slot(&IVdsPack::QueryDisks), first + 3);
    EXPECT_EQ(Slot(&IVdsDisk::GetProperties), first);
    EXPECT_EQ(Slot(&IVdsAdvancedDisk::Clean), first + 9);
    EXPECT_EQ(Slot(&IVdsAsync::Wait), first + 1);
    EXPECT_EQ(Slot(&IVdsDiskOnline::Online), first);
    EXPECT_EQ(Slot(&IVdsDiskOnline::Offline), first + 1);
}

TEST(InterfaceSlots, LastMethodOfEachInterface)
{
    EXPECT_EQ(Slot(&IVdsService::ClearFlags), first + 16);
    EXPECT_EQ(Slot(&IEnumVdsObject::Clone), first + 3);
    EXPECT_EQ(Slot(&IVdsSwProvider::CreatePack), first + 1);
    EXPECT_EQ(Slot(&IVdsPack::Recover), first + 9);
    EXPECT_EQ(Slot(&IVdsDisk::ClearFlags), first + 6);
    EXPECT_EQ(Slot(&IVdsAsync::QueryStatus), first + 2);
}

} // namespace
