// disk_call.h - one call on a disk of the Virtual Disk Service: connect, search, act, leave. The
// search is the same for every export; what an export makes of it stands in its DiskCall.
#pragma once

#include "base/com_ptr.h"
#include "disk/vds.h"

#include <cstdint>

namespace kestro::library {

// The calls that can fail before there is a disk to act on, in the order in which they are made.
enum class DiskStep {
    CreateLoader,
    LoadService,
    UnallocatedDisk,
    UnallocatedDiskProperties,
    QueryProviders,
    NextProvider,
    Provider,
    QueryPacks,
    PackOrPackDisk,
};

enum class DiskPlace { Unallocated, Pack };

// How a call leaves, and with what. AtOnce skips the releases and leaves COM initialised.
struct DiskEnding {
    enum class Exit { Common, AtOnce };
    Exit exit;
    std::int32_t value;
};

class DiskCall {
  public:
    // Progress, which only a call with a ResultFile shows.
    virtual void Tell(const char* line);
    virtual void TellNumber(const char* label, HRESULT number);
    virtual void TellPack(long number);
    virtual void TellDisk(long number);

    virtual DiskEnding Failed(DiskStep step, HRESULT result) = 0;
    virtual DiskEnding NotFound(HRESULT result) = 0;
    // Acts on the disk; result is the current code and keeps the last one.
    virtual DiskEnding Found(DiskPlace place, ComSlot<IVdsDisk>& disk, HRESULT& result) = 0;

  protected:
    ~DiskCall() = default;
};

// COM has to be initialised on the calling thread. The common exit uninitialises it once, which
// consumes one of the thread's own initialisations.
std::int32_t RunDiskCall(DiskCall& call, const wchar_t* diskName);

} // namespace kestro::library
