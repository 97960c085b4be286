// disk_service_tables.h - the method tables of a disk service that is made of plain functions. Slots that
// the library has no business in stay empty.
#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>
#include <utility>

namespace kestro::test {

struct DiskServiceMethods {
    void* QueryInterface;
    void* AddRef;
    void* Release;
    void* LoadService;
    void* QueryProviders;
    void* QueryUnallocatedDisks;
    void* Next;
    void* ProviderProperties;
    void* QueryPacks;
    void* PackProperties;
    void* QueryDisks;
    void* DiskProperties;
    void* Clean;
    void* Wait;
    void* Online;
    void* Offline;
};

class DiskServiceTables {
  public:
    using Table = std::array<void*, 20>;

    explicit DiskServiceTables(const DiskServiceMethods& m)
        : loader(Make(m, {{0, m.LoadService}})),
          service(Make(m, {{3, m.QueryProviders}, {5, m.QueryUnallocatedDisks}})),
          enumerator(Make(m, {{0, m.Next}})), provider(Make(m, {{0, m.ProviderProperties}})),
          software_provider(Make(m, {{0, m.QueryPacks}})),
          pack(Make(m, {{0, m.PackProperties}, {3, m.QueryDisks}})),
          disk(Make(m, {{0, m.DiskProperties}})), advanced_disk(Make(m, {{9, m.Clean}})),
          async(Make(m, {{1, m.Wait}})), disk_online(Make(m, {{0, m.Online}, {1, m.Offline}}))
    {
    }

    const Table loader, service, enumerator, provider, software_provider, pack, disk, advanced_disk,
        async, disk_online;

  private:
    // Slots count from the interface's first own method.
    static Table Make(const DiskServiceMethods& methods,
                      std::initializer_list<std::pair<std::size_t, void*>> own)
    {
        Table table{methods.QueryInterface, methods.AddRef, methods.Release};
        for (const auto& [slot, method] : own)
            table.at(3 + slot) = method;
        return table;
    }
};

} // namespace kestro::test
