// disk_online.cpp - bringing a disk online and taking it offline. Both report through their return
// value alone.
#include "disk/disk_operations.h"
#include "disk/disk_search.h"

namespace kestro::library {
namespace {

using Exit = DiskEnding::Exit;
using OnlineMethod = HRESULT (STDMETHODCALLTYPE IVdsDiskOnline::*)();

class OnlineAction final : public DiskAction {
  public:
    explicit OnlineAction(OnlineMethod method) : method_(method) {}

    // Every failure leaves at once, with COM still initialised.
    DiskEnding FailedEarly(Exit, HRESULT result) override { return {Exit::AtOnce, result}; }
    // The search's last code, S_FALSE.
    std::int32_t NotFound(HRESULT result) override { return result; }
    DiskEnding Found(DiskPlace place, ComSlot<IVdsDisk>& disk, HRESULT& result) override
    {
        // Left in the service, like the disk itself when it is in a pack.
        ComSlot<IVdsDiskOnline> diskOnline;
        result = Convert(disk.Get(), diskOnline);
        if (place == DiskPlace::Unallocated)
            disk.Release();
        if (FAILED(result))
            return {Exit::AtOnce, result};

        result = CallOn(diskOnline.Get(), method_);
        return {FAILED(result) ? Exit::AtOnce : Exit::Common, result};
    }

  private:
    OnlineMethod method_;
};

std::int32_t SetOnline(const wchar_t* diskName, OnlineMethod method)
{
    OnlineAction action(method);
    DiskProgress silent;
    return FindDisk(diskName, action, silent);
}

} // namespace

std::int32_t OnlineDisk(const wchar_t* diskName)
{
    return SetOnline(diskName, &IVdsDiskOnline::Online);
}

std::int32_t OfflineDisk(const wchar_t* diskName)
{
    return SetOnline(diskName, &IVdsDiskOnline::Offline);
}

} // namespace kestro::library
