// disk_clean.cpp - wiping a disk, with its progress in the ResultFile's log.
#include "disk/disk_operations.h"
#include "disk/disk_search.h"
#include "report/operation_log.h"

namespace kestro::library {
namespace {

using Exit = DiskEnding::Exit;

constexpr std::int32_t kCleaned = 1;
constexpr std::int32_t kNotCleaned = 0;

struct CleanFlags {
    BOOL force, forceOEM, fullClean;
};

class CleanAction final : public DiskAction {
  public:
    CleanAction(const CleanFlags& flags, DiskProgress& progress)
        : flags_(flags), progress_(progress)
    {
    }

    DiskEnding FailedEarly(Exit exit, HRESULT) override { return {exit, kNotCleaned}; }
    std::int32_t NotFound(HRESULT) override { return kNotCleaned; }
    DiskEnding Found(DiskPlace place, ComSlot<IVdsDisk>& disk, HRESULT& result) override
    {
        return place == DiskPlace::Unallocated ? CleanUnallocated(disk, result)
                                               : CleanInPack(disk, result);
    }

  private:
    DiskEnding CleanUnallocated(ComSlot<IVdsDisk>& disk, HRESULT& result);
    DiskEnding CleanInPack(ComSlot<IVdsDisk>& disk, HRESULT& result);
    HRESULT Clean();
    void Wait(HRESULT& result);

    DiskEnding Leave(const char* line, DiskEnding ending)
    {
        progress_.Tell(line);
        return ending;
    }

    CleanFlags flags_;
    DiskProgress& progress_;
    // Both are left in the service.
    ComSlot<IVdsAdvancedDisk> advancedDisk_;
    ComSlot<IVdsAsync> async_;
};

HRESULT CleanAction::Clean()
{
    return CallOn(advancedDisk_.Get(), &IVdsAdvancedDisk::Clean, flags_.force, flags_.forceOEM,
                  flags_.fullClean, async_.Put());
}

// The code the service delivers counts, not the wait's own. Without an object to wait on, the code
// of the clean stands.
void CleanAction::Wait(HRESULT& result)
{
    VDS_ASYNC_OUTPUT output = {};
    CallOn(async_.Get(), &IVdsAsync::Wait, &result, &output);
}

// An unallocated disk: every result is logged, the wait follows whatever the clean returned, and
// every failure is a 0 through the common exit.
DiskEnding CleanAction::CleanUnallocated(ComSlot<IVdsDisk>& disk, HRESULT& result)
{
    result = Convert(disk.Get(), advancedDisk_);
    progress_.Tell("IVdsAdvancedDisk HRESULT: ", result);
    disk.Release();
    if (FAILED(result))
        return Leave("Failed to query IVdsAdvancedDisk interface", {Exit::Common, kNotCleaned});

    result = Clean();
    progress_.Tell("Clean HRESULT: ", result);
    Wait(result);
    if (SUCCEEDED(result))
        return Leave("Disk cleaned successfully.", {Exit::Common, kCleaned});
    return Leave("Failed to clean disk.", {Exit::Common, kNotCleaned});
}

// A disk in a pack: only a clean that started logs its result, and a failed wait returns its own
// code at once.
DiskEnding CleanAction::CleanInPack(ComSlot<IVdsDisk>& disk, HRESULT& result)
{
    result = Convert(disk.Get(), advancedDisk_);
    disk.Release();
    if (FAILED(result))
        return Leave("Failed to query IVdsAdvancedDisk interface", {Exit::AtOnce, result});

    result = Clean();
    if (FAILED(result))
        return Leave("Failed to clean disk.", {Exit::Common, kNotCleaned});
    progress_.Tell("Clean HRESULT: ", result);
    Wait(result);
    if (SUCCEEDED(result))
        return Leave("Disk cleaned successfully.", {Exit::Common, kCleaned});
    return Leave("Failed to clean disk.", {Exit::AtOnce, result});
}

} // namespace

std::int32_t CleanDisk(const wchar_t* diskName, std::uint8_t force, std::uint8_t forceOEM,
                       std::uint8_t fullClean, const char* resultFile)
{
    OperationLog log(resultFile);
    DiskProgress progress(log);
    CleanAction clean({force, forceOEM, fullClean}, progress);
    return FindDisk(diskName, clean, progress);
}

} // namespace kestro::library
