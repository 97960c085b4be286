// disk_clean.cpp - wiping a disk, with its progress in the ResultFile's log.
#include "disk/disk_clean.h"

#include "disk/disk_call.h"
#include "report/console_trace.h"
#include "report/decimal_text.h"
#include "report/operation_log.h"

namespace kestro::library {
namespace {

using Exit = DiskEnding::Exit;

constexpr std::int32_t kCleaned = 1;
constexpr std::int32_t kNotCleaned = 0;

class CleanCall final : public DiskCall {
  public:
    CleanCall(std::uint8_t force, std::uint8_t forceOEM, std::uint8_t fullClean,
              const char* resultFile)
        : force_(force), forceOEM_(forceOEM), fullClean_(fullClean), log_(resultFile)
    {
    }

    void Tell(const char* line) override { log_.AppendLine(line); }
    void TellNumber(const char* label, HRESULT number) override
    {
        log_.AppendLine(label);
        log_.AppendLine(ToDecimalText(number).c_str());
    }
    void TellPack(long number) override { TracePrint("Pack #: %ld\n", number); }
    void TellDisk(long number) override { TracePrint("Disk #: %ld\n", number); }

    DiskEnding Failed(DiskStep step, HRESULT result) override;
    DiskEnding NotFound(HRESULT) override { return {Exit::Common, kNotCleaned}; }
    DiskEnding Found(DiskPlace place, ComSlot<IVdsDisk>& disk, HRESULT& result) override
    {
        return place == DiskPlace::Unallocated ? CleanUnallocated(disk, result)
                                               : CleanInPack(disk, result);
    }

  private:
    DiskEnding CleanUnallocated(ComSlot<IVdsDisk>& disk, HRESULT& result);
    DiskEnding CleanInPack(ComSlot<IVdsDisk>& disk, HRESULT& result);
    DiskEnding TellLine(const char* line, DiskEnding ending)
    {
        Tell(line);
        return ending;
    }

    HRESULT QueryAdvancedDisk(ComSlot<IVdsDisk>& disk)
    {
        return disk->QueryInterface(__uuidof(IVdsAdvancedDisk),
                                    reinterpret_cast<void**>(advancedDisk_.Put()));
    }
    HRESULT Clean()
    {
        IVdsAsync** const async = async_.Put();
        return advancedDisk_ ? advancedDisk_->Clean(force_, forceOEM_, fullClean_, async)
                             : E_POINTER;
    }
    // The code the service delivers counts, not the wait's own. Without an object to wait on, the
    // code of the clean stands.
    void Wait(HRESULT& result)
    {
        VDS_ASYNC_OUTPUT output = {};
        if (async_)
            async_->Wait(&result, &output);
    }

    BOOL force_;
    BOOL forceOEM_;
    BOOL fullClean_;
    OperationLog log_;
    // Both are left in the service.
    ComSlot<IVdsAdvancedDisk> advancedDisk_;
    ComSlot<IVdsAsync> async_;
};

// Failures up to the unallocated disks return 0, most of them through the common exit; failures
// inside the providers return their own code at once.
DiskEnding CleanCall::Failed(DiskStep step, HRESULT result)
{
    switch (step) {
    case DiskStep::CreateLoader:
        return TellLine("CoCreateInstance failed", {Exit::AtOnce, kNotCleaned});
    case DiskStep::LoadService:
        return TellLine("LoadService failed", {Exit::Common, kNotCleaned});
    case DiskStep::UnallocatedDisk:
        return TellLine("Failed to query IID_IVdsDisk interface", {Exit::Common, kNotCleaned});
    case DiskStep::UnallocatedDiskProperties:
        return TellLine("Failed to get disk properties.", {Exit::Common, kNotCleaned});
    case DiskStep::NextProvider:
        return TellLine("Error in querying software providers...", {Exit::AtOnce, result});
    case DiskStep::QueryPacks:
        return TellLine("Error in querying packs...", {Exit::AtOnce, result});
    case DiskStep::QueryProviders:
    case DiskStep::Provider:
    case DiskStep::PackOrPackDisk:
        break;
    }
    return {Exit::AtOnce, result};
}

// An unallocated disk: every result is logged, the wait follows whatever the clean returned, and
// every failure is a 0 through the common exit.
DiskEnding CleanCall::CleanUnallocated(ComSlot<IVdsDisk>& disk, HRESULT& result)
{
    result = QueryAdvancedDisk(disk);
    TellNumber("IVdsAdvancedDisk HRESULT: ", result);
    disk.Release();
    if (FAILED(result))
        return TellLine("Failed to query IVdsAdvancedDisk interface", {Exit::Common, kNotCleaned});

    result = Clean();
    TellNumber("Clean HRESULT: ", result);
    Wait(result);
    if (SUCCEEDED(result))
        return TellLine("Disk cleaned successfully.", {Exit::Common, kCleaned});
    return TellLine("Failed to clean disk.", {Exit::Common, kNotCleaned});
}

// A disk in a pack: only a clean that started logs its result, and a failed wait returns its own
// code at once.
DiskEnding CleanCall::CleanInPack(ComSlot<IVdsDisk>& disk, HRESULT& result)
{
    result = QueryAdvancedDisk(disk);
    disk.Release();
    if (FAILED(result))
        return TellLine("Failed to query IVdsAdvancedDisk interface", {Exit::AtOnce, result});

    result = Clean();
    if (FAILED(result))
        return TellLine("Failed to clean disk.", {Exit::Common, kNotCleaned});
    TellNumber("Clean HRESULT: ", result);
    Wait(result);
    if (SUCCEEDED(result))
        return TellLine("Disk cleaned successfully.", {Exit::Common, kCleaned});
    return TellLine("Failed to clean disk.", {Exit::AtOnce, result});
}

} // namespace

std::int32_t CleanDiskNamed(const wchar_t* diskName, std::uint8_t force, std::uint8_t forceOEM,
                            std::uint8_t fullClean, const char* resultFile)
{
    CleanCall call(force, forceOEM, fullClean, resultFile);
    return RunDiskCall(call, diskName);
}

} // namespace kestro::library
