// file_disk.h - a raw image file as a disk.
#pragma once

#include "disk_list.h"
#include "raw_disk.h"

#include <windows.h>

namespace kestro::vds {

class FileDisk final : public RawDisk {
  public:
    enum class Access { Read, Write };
    FileDisk(const DiskEntry& disk, Access access);
    ~FileDisk() override;
    FileDisk(const FileDisk&) = delete;
    FileDisk& operator=(const FileDisk&) = delete;

    std::uint64_t Size() const override { return size_; }
    std::uint32_t SectorSize() const override { return sectorSize_; }
    void Read(std::uint64_t offset, void* data, std::size_t size) override;
    void Write(std::uint64_t offset, const void* data, std::size_t size) override;
    void Flush() override;

  private:
    HANDLE file_;
    std::uint64_t size_ = 0;
    std::uint32_t sectorSize_, kilobytesPerSecond_;
    std::uint64_t badByte_;
};

} // namespace kestro::vds
