// memory_disk.h - a disk whose content is an input.
#pragma once

#include "raw_disk.h"

#include <cstdint>
#include <string>

namespace kestro::fuzz {

class MemoryDisk final : public vds::RawDisk {
  public:
    MemoryDisk(const std::string& content, std::uint32_t sectorSize);

    std::uint64_t Size() const override { return bytes_.size(); }
    std::uint32_t SectorSize() const override { return sectorSize_; }
    void Read(std::uint64_t offset, void* data, std::size_t size) override;
    void Write(std::uint64_t offset, const void* data, std::size_t size) override;
    void Flush() override {}

    // Adds empty sectors at the end.
    void Grow(std::size_t bytes) { bytes_.resize(bytes_.size() + bytes); }
    // A fuzzer does not guess checksums: both headers of a GPT get those that fit.
    void RepairChecksums();
    bool IsZero() const;

  private:
    void Check(std::uint64_t offset, std::size_t size) const;
    void RepairHeader(std::size_t offset);

    std::string bytes_;
    std::uint32_t sectorSize_;
};

} // namespace kestro::fuzz
