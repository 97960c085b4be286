// file_disk.cpp - a raw image file as a disk.
#include "file_disk.h"

namespace kestro::vds {
namespace {

[[noreturn]] void Fail(const char* what)
{
    throw DiskError(std::string(what) + " failed with " + std::to_string(GetLastError()));
}

OVERLAPPED At(std::uint64_t offset)
{
    OVERLAPPED place = {};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

} // namespace

FileDisk::FileDisk(const DiskEntry& disk, Access access)
    : file_(CreateFileW(disk.file.c_str(),
                        access == Access::Write ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                        FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                        FILE_ATTRIBUTE_NORMAL, nullptr)),
      sectorSize_(disk.sectorSize), kilobytesPerSecond_(disk.kilobytesPerSecond),
      badByte_(std::uint64_t{disk.badSector} * disk.sectorSize)
{
    if (file_ == INVALID_HANDLE_VALUE)
        Fail("opening the disk's file");
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file_, &size)) {
        CloseHandle(file_);
        Fail("asking for the size of the disk's file");
    }
    // A disk has whole sectors.
    size_ = static_cast<std::uint64_t>(size.QuadPart) / sectorSize_ * sectorSize_;
}

FileDisk::~FileDisk()
{
    CloseHandle(file_);
}

void FileDisk::Read(std::uint64_t offset, void* data, std::size_t size)
{
    OVERLAPPED place = At(offset);
    DWORD moved = 0;
    if (!ReadFile(file_, data, static_cast<DWORD>(size), &moved, &place) || moved != size)
        Fail("reading the disk's file");
}

void FileDisk::Write(std::uint64_t offset, const void* data, std::size_t size)
{
    if (badByte_ != 0 && badByte_ >= offset && badByte_ - offset < size)
        throw DiskError("a sector cannot be written");
    OVERLAPPED place = At(offset);
    DWORD moved = 0;
    if (!WriteFile(file_, data, static_cast<DWORD>(size), &moved, &place) || moved != size)
        Fail("writing the disk's file");
    if (kilobytesPerSecond_ != 0)
        Sleep(static_cast<DWORD>(size / 1024 * 1000 / kilobytesPerSecond_));
}

void FileDisk::Flush()
{
    if (!FlushFileBuffers(file_))
        Fail("saving the disk's file");
}

} // namespace kestro::vds
