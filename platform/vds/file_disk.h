// file_disk.h - a raw image file as a disk.
#pragma once

#include "raw_disk.h"

#include <windows.h>

#include <string>

namespace kestro::vds {

class FileDisk final : public RawDisk {
  public:
    enum class Access { Read, Write };
    FileDisk(const std::wstring& path, std::uint32_t sectorSize, Access access,
             std::uint32_t kilobytesPerSecond);
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
    std::uint32_t sectorSize_;
    std::uint32_t kilobytesPerSecond_; // 0: as fast as it goes
};

} // namespace kestro::vds
