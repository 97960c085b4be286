// disk_clean.cpp - taking everything off a disk.
#include "disk_clean.h"

#include <algorithm>

namespace kestro::vds {

std::int32_t MayClean(const DiskState& state, const PartitionTable& table, const CleanFlags& flags)
{
    if (!state.online)
        return code::disk_offline;
    if (state.readOnly)
        return code::disk_read_only;
    if (state.boot || state.system)
        return code::clean_with_critical;
    if (table.Holds(PartitionKind::Oem) && !flags.forceOem)
        return code::clean_with_oem;
    if (table.Holds(PartitionKind::Dynamic) && !flags.force)
        return code::dynamic_disk_not_empty;
    if ((table.Holds(PartitionKind::Data) || table.Holds(PartitionKind::Esp)) && !flags.force)
        return code::clean_with_data;
    return code::ok;
}

std::int32_t Clean(RawDisk& disk, bool full, const CleanProgress& progress)
{
    constexpr std::uint64_t stretch = 1 << 20;
    const std::vector<std::uint8_t> zeros(stretch, 0);
    const std::uint64_t size = disk.Size();

    // The backup of a GPT lies at the end. It goes first, so that a clean that stops half-way leaves
    // nothing from which the front could be restored.
    const std::uint64_t edge = std::min(stretch, size);
    disk.Write(size - edge, zeros.data(), edge);
    disk.Write(0, zeros.data(), edge);
    disk.Flush();

    bool whole = true;
    for (std::uint64_t offset = edge; full && offset < size; offset += stretch) {
        try {
            disk.Write(offset, zeros.data(), std::min(stretch, size - offset));
        } catch (const DiskError&) {
            whole = false; // the rest of the disk can still be cleaned
        }
        if (!progress(static_cast<unsigned>(offset * 100 / size)))
            return code::cancelled;
    }
    disk.Flush();
    progress(100);
    return whole ? code::ok : code::partially_cleaned;
}

} // namespace kestro::vds
