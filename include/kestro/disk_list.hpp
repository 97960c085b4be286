// disk_list.hpp - the disks of this machine as the Virtual Disk Service tells of them, and what a clean would ask
// for.
#ifndef KESTRO_DISK_LIST_HPP
#define KESTRO_DISK_LIST_HPP

#include "disk_service.hpp"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

namespace kestro {

struct DiskDetails {
    enum class State { Unknown, Online, NotReady, NoMedia, Offline, Failed, Missing };
    enum class Style { None, Mbr, Gpt };

    std::string name, friendlyName, pack, provider; // no provider: the disk is unallocated
    std::uint64_t size = 0;
    std::uint32_t sectorSize = 0;
    Style style = Style::None;
    State state = State::Unknown;
    bool healthy = true, readOnly = false, system = false, boot = false;
    bool pageFile = false, hibernation = false, crashDump = false; // holds that file
    // What a clean must be told to take off: CleanOptions::force and forceOem.
    bool holdsData = false, holdsOem = false;
};

struct DiskListing {
    std::vector<DiskDetails> disks;
    std::optional<Failure> failure;
};

namespace detail::vds {

inline DiskDetails DetailsOf(Disk& disk)
{
    DiskProperties record = {};
    const HRESULT result = disk.GetProperties(&record);
    if (FAILED(result))
        throw Failure{"IVdsDisk::GetProperties", result};
    DiskDetails details;
    details.name = Utf8(Taken(record.name));
    details.friendlyName = Utf8(Taken(record.friendlyName));
    for (wchar_t** text : {&record.address, &record.adaptorName, &record.devicePath})
        Taken(*text);
    details.size = record.size;
    details.sectorSize = record.bytesPerSector;
    if (record.partitionStyle <= static_cast<DWORD>(DiskDetails::Style::Gpt))
        details.style = static_cast<DiskDetails::Style>(record.partitionStyle);
    if (record.status <= static_cast<DWORD>(DiskDetails::State::Missing))
        details.state = static_cast<DiskDetails::State>(record.status);
    details.healthy = record.health <= 1; // or nobody knows
    details.readOnly = (record.flags & 0x40) != 0;
    details.system = (record.flags & 0x80) != 0;
    details.boot = (record.flags & 0x100) != 0;
    details.pageFile = (record.flags & 0x200) != 0;
    details.hibernation = (record.flags & 0x400) != 0;
    details.crashDump = (record.flags & 0x800) != 0;
    return details;
}

// A disk that keeps its extents to itself has what its partition style lets expect.
inline void SetHoldings(DiskDetails& details, Disk& disk)
{
    constexpr DWORD unknown = 0, data = 2, oem = 3, esp = 4, dynamic = 6;
    DiskExtent* extents = nullptr;
    LONG count = 0;
    if (FAILED(disk.QueryExtents(&extents, &count))) {
        details.holdsData = details.style != DiskDetails::Style::None;
        return;
    }
    for (LONG i = 0; i < count; ++i) {
        const DWORD type = extents[i].type;
        details.holdsData =
            details.holdsData || type == unknown || type == data || type == esp || type == dynamic;
        details.holdsOem = details.holdsOem || type == oem;
    }
    CoTaskMemFree(extents);
}

inline void SetPlace(DiskDetails& details, const Place& place)
{
    if (place.provider == nullptr)
        return;
    ProviderProperties provider = {};
    PackProperties pack = {};
    HRESULT result = As<Provider>(*place.provider)->GetProperties(&provider);
    if (FAILED(result))
        throw Failure{"IVdsProvider::GetProperties", result};
    details.provider = Utf8(Taken(provider.name));
    Taken(provider.version);
    result = place.pack->GetProperties(&pack);
    if (FAILED(result))
        throw Failure{"IVdsPack::GetProperties", result};
    details.pack = Utf8(Taken(pack.name)); // a pack of basic disks need not have one
}

} // namespace detail::vds

// Waits until the service is ready. Nothing of the thread's own COM is touched.
inline DiskListing ListDisks(std::chrono::milliseconds limit = kDiskServicePatience)
{
    DiskListing listing;
    listing.failure = detail::vds::RefusedByManager();
    if (listing.failure)
        return listing;
    try {
        listing.disks = detail::vds::OnThread<std::vector<DiskDetails>>(limit, [] {
            std::vector<DiskDetails> disks;
            const auto service = detail::vds::ReadyService();
            detail::vds::EachDisk(*service,
                                  [&](detail::vds::Disk& disk, const detail::vds::Place& place) {
                                      disks.push_back(detail::vds::DetailsOf(disk));
                                      detail::vds::SetHoldings(disks.back(), disk);
                                      detail::vds::SetPlace(disks.back(), place);
                                      return true;
                                  });
            return disks;
        });
    } catch (const Failure& failure) {
        listing.failure = failure;
    }
    return listing;
}

} // namespace kestro

#endif
