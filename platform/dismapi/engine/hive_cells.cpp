// hive_cells.cpp - the cells of a registry hive in memory.
#include "hive_cells.h"

#include "hive_header.h"
#include "hive_values.h"
#include "servicing_error.h"

#include <algorithm>
#include <cstdlib>

namespace kestro::servicing {

namespace {

constexpr std::size_t kBinHeader = 0x20;
constexpr std::size_t kSmallest = 8; // size of a cell, and what sizes are multiples of
constexpr std::size_t kRootField = 36;
constexpr std::size_t kMajorVersion = 20, kMinorVersion = 24;

std::size_t RoundedUp(std::size_t size, std::size_t unit)
{
    return (size + unit - 1) / unit * unit;
}

} // namespace

HiveCells::HiveCells(std::string bytes, std::string name)
    : bytes_(std::move(bytes)), name_(std::move(name))
{
    // What lies behind the last bin is no part of the hive.
    bytes_.resize(std::min(bytes_.size(), kHiveBins + HiveWord(bytes_, hive_field::binsSize)));
    if (bytes_.size() < kHiveBins + kBinHeader || bytes_.compare(kHiveBins, 4, "hbin") != 0)
        Refuse("it has no bins");
    // Of Windows NT 4 and later; cells were others before.
    constexpr std::uint32_t first = 3, last = 6;
    const std::uint32_t minor = HiveWord(bytes_, kMinorVersion);
    if (HiveWord(bytes_, kMajorVersion) != 1 || minor < first || minor > last)
        Refuse("it is of another format");
    Expect(Root(), "nk");
}

void HiveCells::Refuse(const std::string& reason) const
{
    throw ServicingError(code::bad_hive, name_ + " is damaged: " + reason);
}

HiveCells::Cell HiveCells::Root() const
{
    return HiveWord(bytes_, kRootField);
}

bool HiveCells::HasPieces() const
{
    constexpr std::uint32_t first = 4;
    return HiveWord(bytes_, kMinorVersion) >= first;
}

bool HiveCells::HasHashes() const
{
    constexpr std::uint32_t first = 5;
    return HiveWord(bytes_, kMinorVersion) >= first;
}

// Where the cell is in the file, if it is in use and reaches to `end`.
std::size_t HiveCells::Place(Cell cell, std::size_t end) const
{
    const std::size_t place = kHiveBins + cell;
    if (cell % kSmallest != 0 || place + 4 > bytes_.size())
        Refuse("something leads to no cell");
    const auto size = -std::int64_t{static_cast<std::int32_t>(HiveWord(bytes_, place))};
    if (size < std::int64_t{kSmallest} || static_cast<std::size_t>(size) > bytes_.size() - place)
        Refuse("something leads to no cell");
    if (end > static_cast<std::size_t>(size))
        Refuse("a cell is too small for what is in it");
    return place;
}

void HiveCells::Expect(Cell cell, std::string_view id) const
{
    if (Id(cell) != id)
        Refuse("a cell is no " + std::string(id) + " record");
}

std::size_t HiveCells::Room(Cell cell) const
{
    return 0 - HiveWord(bytes_, Place(cell, 0)) - 4;
}

std::string_view HiveCells::Bytes(Cell cell, std::size_t offset, std::size_t length) const
{
    return std::string_view(bytes_).substr(Place(cell, offset + length) + offset, length);
}

std::uint32_t HiveCells::Word(Cell cell, std::size_t offset) const
{
    return HiveWord(Bytes(cell, offset, 4), 0);
}

std::uint16_t HiveCells::Half(Cell cell, std::size_t offset) const
{
    return static_cast<std::uint16_t>(HiveWord(Bytes(cell, offset, 2), 0));
}

void HiveCells::Put(Cell cell, std::size_t offset, std::string_view bytes)
{
    bytes_.replace(Place(cell, offset + bytes.size()) + offset, bytes.size(), bytes);
}

void HiveCells::PutWord(Cell cell, std::size_t offset, std::uint32_t word)
{
    Put(cell, offset, NumberBytes(word, 4));
}

void HiveCells::PutHalf(Cell cell, std::size_t offset, std::uint16_t half)
{
    Put(cell, offset, NumberBytes(half, 2));
}

// --- room ------------------------------------------------------------------------------------------

void HiveCells::SetSize(Cell cell, std::size_t size, bool used)
{
    const auto number = static_cast<std::uint32_t>(size);
    SetHiveWord(bytes_, kHiveBins + cell, used ? 0 - number : number);
}

void HiveCells::NoteFree(Cell cell, std::size_t size)
{
    SetSize(cell, size, false);
    free_.emplace(size, cell);
}

void HiveCells::FindFree()
{
    knowsFree_ = true;
    std::size_t bin = kHiveBins;
    while (bin < bytes_.size()) {
        const std::size_t next = bin + HiveWord(bytes_, bin + 8);
        if (bytes_.compare(bin, 4, "hbin") != 0 || next <= bin || next > bytes_.size())
            Refuse("a bin has a wrong size");
        FindFree(bin + kBinHeader, next);
        bin = next;
    }
}

// Free cells that lie together become one.
void HiveCells::FindFree(std::size_t cell, std::size_t end)
{
    std::size_t before = 0; // bytes of free cells that end here
    while (cell < end) {
        const auto size = static_cast<std::int32_t>(HiveWord(bytes_, cell));
        const auto length = static_cast<std::size_t>(std::abs(std::int64_t{size}));
        if (length < kSmallest || length % kSmallest != 0 || length > end - cell)
            Refuse("a cell has a wrong size");
        cell += length;
        if (size > 0)
            before += length;
        if (before != 0 && (size < 0 || cell == end)) {
            const std::size_t behind = size < 0 ? cell - length : cell;
            NoteFree(static_cast<Cell>(behind - before - kHiveBins), before);
            before = 0;
        }
    }
}

void HiveCells::AddBin(std::size_t size)
{
    const std::size_t bin = bytes_.size();
    const std::size_t whole = RoundedUp(size + kBinHeader, kHiveBins);
    constexpr std::size_t largest = 0x7FFFFFFF; // offsets beyond it are for what is not in the file
    if (bin - kHiveBins + whole > largest)
        throw ServicingError(code::bad_hive, name_ + " has no more room");
    bytes_.resize(bin + whole);
    bytes_.replace(bin, 4, "hbin");
    SetHiveWord(bytes_, bin + 4, static_cast<std::uint32_t>(bin - kHiveBins));
    SetHiveWord(bytes_, bin + 8, static_cast<std::uint32_t>(whole));
    NoteFree(static_cast<Cell>(bin - kHiveBins + kBinHeader), whole - kBinHeader);
}

HiveCells::Cell HiveCells::Allocate(std::size_t room)
{
    if (!knowsFree_)
        FindFree();
    std::size_t size = RoundedUp(room + 4, kSmallest);
    auto found = free_.lower_bound(size);
    if (found == free_.end()) {
        AddBin(size);
        found = free_.lower_bound(size);
    }
    const auto [there, cell] = *found;
    free_.erase(found);
    if (there - size >= kSmallest)
        NoteFree(static_cast<Cell>(cell + size), there - size);
    else
        size = there;
    SetSize(cell, size, true);
    bytes_.replace(kHiveBins + cell + 4, size - 4, size - 4, '\0');
    return cell;
}

void HiveCells::Free(Cell cell)
{
    if (!knowsFree_)
        FindFree();
    NoteFree(cell, Room(cell) + 4);
}

// The sequence numbers are those of a hive that nobody is writing. Its first bin has a time, too: an old
// log of the same time would seem to belong to the hive when Windows next marks it.
const std::string& HiveCells::Finished(const std::string& fileTime)
{
    constexpr std::size_t timeInFirstBin = 20;
    if (!knowsFree_)
        FindFree();
    const std::uint32_t sequence =
        std::max(HiveWord(bytes_, hive_field::sequence1), HiveWord(bytes_, hive_field::sequence2)) +
        1;
    SetHiveWord(bytes_, hive_field::sequence1, sequence);
    SetHiveWord(bytes_, hive_field::sequence2, sequence);
    SetHiveWord(bytes_, hive_field::binsSize,
                static_cast<std::uint32_t>(bytes_.size() - kHiveBins));
    bytes_.replace(hive_field::written, fileTime.size(), fileTime);
    bytes_.replace(kHiveBins + timeInFirstBin, fileTime.size(), fileTime);
    SetHiveChecksum(bytes_);
    return bytes_;
}

} // namespace kestro::servicing
