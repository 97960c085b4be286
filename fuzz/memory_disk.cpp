// memory_disk.cpp - a disk whose content is an input.
#include "memory_disk.h"

#include <cstring>

namespace kestro::fuzz {
namespace {

// Inputs and the machines that fuzz are little-endian.
template <class Number>
Number NumberAt(const std::string& bytes, std::size_t offset)
{
    Number number;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
}

// Puts the CRC-32 of a range somewhere.
void PutChecksum(std::string& bytes, std::size_t offset, std::size_t from, std::size_t size)
{
    std::uint32_t checksum = 0xFFFFFFFF;
    for (std::size_t i = from; i < from + size; ++i) {
        checksum ^= static_cast<unsigned char>(bytes[i]);
        for (int bit = 0; bit < 8; ++bit)
            checksum = (checksum >> 1) ^ ((checksum & 1) * 0xEDB88320);
    }
    checksum = ~checksum;
    std::memcpy(bytes.data() + offset, &checksum, sizeof checksum);
}

} // namespace

MemoryDisk::MemoryDisk(const std::string& content, std::uint32_t sectorSize)
    : bytes_(content), sectorSize_(sectorSize)
{
    bytes_.resize((bytes_.size() + sectorSize - 1) / sectorSize * sectorSize);
}

void MemoryDisk::Check(std::uint64_t offset, std::size_t size) const
{
    if (offset > bytes_.size() || size > bytes_.size() - offset)
        throw vds::DiskError("outside the disk");
}

void MemoryDisk::Read(std::uint64_t offset, void* data, std::size_t size)
{
    Check(offset, size);
    std::memcpy(data, bytes_.data() + offset, size);
}

void MemoryDisk::Write(std::uint64_t offset, const void* data, std::size_t size)
{
    Check(offset, size);
    std::memcpy(bytes_.data() + offset, data, size);
}

void MemoryDisk::RepairHeader(std::size_t offset)
{
    const std::uint64_t sectors = bytes_.size() / sectorSize_;
    const auto entries = NumberAt<std::uint64_t>(bytes_, offset + 72);
    const auto size = std::uint64_t{NumberAt<std::uint32_t>(bytes_, offset + 80)} *
                      NumberAt<std::uint32_t>(bytes_, offset + 84);
    if (entries < sectors && size <= bytes_.size() - entries * sectorSize_)
        PutChecksum(bytes_, offset + 88, entries * sectorSize_, size);
    const auto headerSize = NumberAt<std::uint32_t>(bytes_, offset + 12);
    std::memset(bytes_.data() + offset + 16, 0, 4);
    if (headerSize <= sectorSize_)
        PutChecksum(bytes_, offset + 16, offset, headerSize);
}

void MemoryDisk::RepairChecksums()
{
    if (bytes_.size() < 3 * sectorSize_)
        return;
    RepairHeader(sectorSize_);
    RepairHeader(bytes_.size() - sectorSize_);
}

bool MemoryDisk::IsZero() const
{
    return bytes_.find_first_not_of('\0') == std::string::npos;
}

} // namespace kestro::fuzz
