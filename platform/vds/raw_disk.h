// raw_disk.h - a disk as bytes: what the partition code reads and the clean writes.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestro::vds {

// A read or write that failed.
class DiskError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class RawDisk {
  public:
    virtual ~RawDisk() = default;
    virtual std::uint64_t Size() const = 0;
    virtual std::uint32_t SectorSize() const = 0;
    // Whole ranges inside the disk; throw DiskError.
    virtual void Read(std::uint64_t offset, void* data, std::size_t size) = 0;
    virtual void Write(std::uint64_t offset, const void* data, std::size_t size) = 0;
    // What was written is on the disk for good.
    virtual void Flush() = 0;

    std::vector<std::uint8_t> ReadBytes(std::uint64_t offset, std::size_t size)
    {
        std::vector<std::uint8_t> bytes(size);
        Read(offset, bytes.data(), size);
        return bytes;
    }
};

} // namespace kestro::vds
