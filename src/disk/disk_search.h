// disk_search.h - connecting to the Virtual Disk Service and finding a disk by its name. The search is the
// same for every export; what an export does with the disk, and what it returns, stands in its DiskAction.
#pragma once

#include "base/com_slot.h"
#include "disk/disk_progress.h"
#include "disk/service_interfaces.h"

#include <cstdint>

namespace kestro::library {

enum class DiskPlace { Unallocated, Pack };

// How a call leaves, and with what. AtOnce skips the releases and leaves COM initialised.
struct DiskEnding {
    enum class Exit { Common, AtOnce };
    Exit exit;
    std::int32_t value;
};

class DiskAction {
  public:
    // A failure before the providers are asked; exit is the one that CleanDisk takes.
    virtual DiskEnding FailedEarly(DiskEnding::Exit exit, HRESULT result) = 0;
    // Left by the common exit.
    virtual std::int32_t NotFound(HRESULT result) = 0;
    // Acts on the disk; result is the current code and keeps the last one.
    virtual DiskEnding Found(DiskPlace place, ComSlot<IVdsDisk>& disk, HRESULT& result) = 0;

  protected:
    ~DiskAction() = default;
};

// COM has to be initialised on the calling thread. The common exit uninitialises it once, which
// consumes one of the thread's own initialisations.
std::int32_t FindDisk(const wchar_t* diskName, DiskAction& action, DiskProgress& progress);

} // namespace kestro::library
