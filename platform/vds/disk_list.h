// disk_list.h - the machine's disks, as one text file describes them.
#pragma once

#include "disk_clean.h"

#include <optional>
#include <string>
#include <vector>

namespace kestro::vds {

struct DiskEntry {
    std::wstring section;  // where the file describes it
    std::wstring name;     // \\?\PhysicalDriveN
    std::wstring file;     // the raw image file
    std::wstring provider; // of an allocated disk
    std::wstring pack;     // empty: unallocated
    DiskState state;
    std::uint32_t sectorSize = 512;
    std::uint32_t kilobytesPerSecond = 0; // 0: as fast as it goes
    std::uint32_t badSector = 0;          // cannot be written; 0: all can

    bool operator==(const DiskEntry& other) const { return section == other.section; }
};

// C:\ProgramData\Kestro\disks.ini. Read anew each time: an edit holds from the next call on. A section
// that cannot be understood is left out and named in the service's log.
std::vector<DiskEntry> ReadDisks();
// The disk's entry as the file describes it now.
std::optional<DiskEntry> ReadDisk(const std::wstring& section);
// Online and offline are for good. False when the file cannot be written.
bool WriteOnline(const std::wstring& section, bool online);

// How long the service needs before it answers, for trying that out.
std::uint32_t SecondsToReady();

// C:\ProgramData\Kestro\vds.log
void Log(const std::wstring& message);

} // namespace kestro::vds
