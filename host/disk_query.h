// disk_query.h - the disks of this machine, as the disk service tells of them.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestro::host {

struct DiskDetails {
    std::string name, friendlyName, pack, provider; // no pack: nothing manages the disk
    std::uint64_t size = 0;
    std::uint32_t sectorSize = 0;
    std::string style; // MBR, GPT or -
    std::string state; // online, offline, ...
    bool readOnly = false, system = false, boot = false, healthy = true;

    // Why the service refuses to clean the disk whatever is asked of it; empty when it does not.
    std::string CleanRefusal() const;
};

// A call of the disk service that failed.
class DiskServiceError : public std::runtime_error {
  public:
    DiskServiceError(const char* function, std::int32_t code)
        : std::runtime_error(function), code_(code)
    {
    }
    std::int32_t Code() const { return code_; }

  private:
    std::int32_t code_;
};

// Throws DiskServiceError. Nothing of the thread's own COM is touched.
std::vector<DiskDetails> QueryDisks();

} // namespace kestro::host
