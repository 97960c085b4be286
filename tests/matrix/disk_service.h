// disk_service.h - a scripted disk service behind the COM doubles. Every call of a method is an event
// under the object's own name and takes its result from the script under "<object>.<method>".
#pragma once

#include "support/platform.h"

#include <memory>
#include <string>
#include <unknwn.h>
#include <vector>

namespace kestro::test {

// What the service has to enumerate; disks go by their names.
struct DiskWorld {
    using Disks = std::vector<std::wstring>;
    using Packs = std::vector<Disks>;

    Disks unallocated;
    std::vector<Packs> providers;
    // Whether Clean hands out an object to wait on.
    bool async_on_success = true;
    bool async_on_failure = false;
};

// The doubles work for the one that exists.
class DiskService {
  public:
    explicit DiskService(const DiskWorld& world);
    ~DiskService();
    DiskService(const DiskService&) = delete;
    DiskService& operator=(const DiskService&) = delete;

    static DiskService& Active();

    // An object that lives as long as the service, whatever its users count.
    template <typename Object, typename... Arguments>
    Object* Make(Arguments&&... arguments)
    {
        auto object = std::make_shared<Object>(std::forward<Arguments>(arguments)...);
        objects_.push_back(object);
        return object.get();
    }

    const DiskWorld& World() const { return world_; }

  private:
    const DiskWorld& world_;
    std::vector<std::shared_ptr<void>> objects_;
};

} // namespace kestro::test
