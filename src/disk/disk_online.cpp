// disk_online.cpp - bringing a disk online and taking it offline. Both report through their return
// value alone.
#include "disk/disk_online.h"

#include "disk/disk_call.h"

namespace kestro::library {
namespace {

using Exit = DiskEnding::Exit;
using OnlineMethod = HRESULT (STDMETHODCALLTYPE IVdsDiskOnline::*)();

class OnlineCall final : public DiskCall {
  public:
    explicit OnlineCall(OnlineMethod method) : method_(method) {}

    // Every failure leaves at once, with COM still initialised.
    DiskEnding Failed(DiskStep, HRESULT result) override { return {Exit::AtOnce, result}; }
    // The search's last code, S_FALSE.
    DiskEnding NotFound(HRESULT result) override { return {Exit::Common, result}; }
    DiskEnding Found(DiskPlace place, ComSlot<IVdsDisk>& disk, HRESULT& result) override
    {
        // Left in the service, like the disk itself when it is in a pack.
        ComSlot<IVdsDiskOnline> diskOnline;
        result = disk->QueryInterface(__uuidof(IVdsDiskOnline),
                                      reinterpret_cast<void**>(diskOnline.Put()));
        if (place == DiskPlace::Unallocated)
            disk.Release();
        if (FAILED(result))
            return {Exit::AtOnce, result};

        result = diskOnline ? (diskOnline.Get()->*method_)() : E_POINTER;
        return {FAILED(result) ? Exit::AtOnce : Exit::Common, result};
    }

  private:
    OnlineMethod method_;
};

} // namespace

HRESULT BringDiskOnline(const wchar_t* diskName)
{
    OnlineCall call(&IVdsDiskOnline::Online);
    return RunDiskCall(call, diskName);
}

HRESULT TakeDiskOffline(const wchar_t* diskName)
{
    OnlineCall call(&IVdsDiskOnline::Offline);
    return RunDiskCall(call, diskName);
}

} // namespace kestro::library
