// disk_service.h - the scripted Virtual Disk Service behind Kestro.dll's CoCreateInstance.
//
// Every call on an object of the service becomes an event under the object's name, such as
// "pack 1.2.QueryDisks() -> 00000000"; Platform::Answer("pack 1.2.QueryDisks", ...) says what it
// returns. A call that fails leaves its result's place as it was.
//
//   loader, service      unallocated disks, providers, packs 1, disks 1.2    enumerators
//   provider 1, software provider 1, pack 1.2                                numbered from 1
//   disk 3 (unallocated), disk 1.2.3 (in pack 1.2), each also as advanced disk and as disk online
//   any <...>            what an enumerator gives before it is asked for its interface
//   async                what a clean gives
#pragma once

#include "support/platform.h"

#include <functional>
#include <memory>
#include <objbase.h>
#include <set>
#include <string>
#include <vector>

namespace kestro::test {

// The names of disks; null for a disk without a name.
using DiskNames = std::vector<const wchar_t*>;
// The packs of one provider.
using Packs = std::vector<DiskNames>;

class DiskService {
  public:
    DiskService();
    ~DiskService();
    DiskService(const DiskService&) = delete;
    DiskService& operator=(const DiskService&) = delete;

    // The one that CoCreateInstance leads to, or null.
    static DiskService* Active();

    // --- the script

    DiskNames unallocated;
    std::vector<Packs> providers;
    // Stands in every text of a disk's properties but its name.
    const wchar_t* decoy = L"decoy";
    // What Wait delivers.
    HRESULT delivered = S_OK;
    // Objects that are null although the call for them succeeds, and results (objects, or "name of
    // disk 1") that are there although the call for them fails.
    std::set<std::string> withheld;
    std::set<std::string> given_anyway;

    // --- for the objects

    // Whether a call with this result gives what it was made for.
    bool Gives(const std::string& what, HRESULT result) const;
    // Fills the place of an object as a call with this result does.
    template <typename Interface>
    void Give(Interface** place, const std::string& name, HRESULT result,
              const std::function<Interface*()>& make) const
    {
        if (withheld.contains(name))
            *place = nullptr;
        else if (Gives(name, result))
            *place = make();
    }
    // A new object, which lives as long as the service to tell of uses after its last release.
    template <typename Object, typename... Arguments>
    Object* Make(Arguments&&... arguments)
    {
        auto object = std::make_shared<Object>(*this, std::forward<Arguments>(arguments)...);
        objects_.push_back(object);
        return object.get();
    }

    // What CoCreateInstance gives.
    IUnknown* MakeLoader();

  private:
    std::vector<std::shared_ptr<void>> objects_;
};

} // namespace kestro::test
