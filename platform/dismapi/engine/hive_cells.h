// hive_cells.h - the cells of a registry hive in memory: what keys, values and lists are made of.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace kestro::servicing {

// A cell is named by its offset in the bins. Reading checks that it is one in use and large enough.
// Every function throws ServicingError for a damaged hive.
class HiveCells {
  public:
    using Cell = std::uint32_t;
    static constexpr Cell kNone = 0xFFFFFFFF;

    // `bytes` is the whole file; `name` is for messages.
    HiveCells(std::string bytes, std::string name);

    Cell Root() const;
    // "nk", "vk" and so on.
    std::string_view Id(Cell cell) const { return Bytes(cell, 4, 2); }
    // Throws unless the cell has that id.
    void Expect(Cell cell, std::string_view id) const;
    // Without the four bytes of its size.
    std::size_t Room(Cell cell) const;
    // Offsets count from the cell's size on: an id is at 4.
    std::string_view Bytes(Cell cell, std::size_t offset, std::size_t length) const;
    std::uint32_t Word(Cell cell, std::size_t offset) const;
    std::uint16_t Half(Cell cell, std::size_t offset) const;

    // All that changes a hive needs one whose cells were checked (hive_check.h).
    void Put(Cell cell, std::size_t offset, std::string_view bytes);
    void PutWord(Cell cell, std::size_t offset, std::uint32_t word);
    void PutHalf(Cell cell, std::size_t offset, std::uint16_t half);
    // Room for that many bytes, all zero.
    Cell Allocate(std::size_t room);
    void Free(Cell cell);

    // The hive is one that large values are in pieces in.
    bool HasPieces() const;
    // The hive is one that lh lists (hashes of whole names) are for.
    bool HasHashes() const;
    const std::string& Content() const { return bytes_; }
    // The file as it is to be written: complete, and at the time of `fileTime`.
    const std::string& Finished(const std::string& fileTime);

    [[noreturn]] void Refuse(const std::string& reason) const;

  private:
    std::size_t Place(Cell cell, std::size_t end) const;
    void FindFree();
    void FindFree(std::size_t cell, std::size_t end);
    void AddBin(std::size_t size);
    void NoteFree(Cell cell, std::size_t size);
    void SetSize(Cell cell, std::size_t size, bool used);

    std::string bytes_;
    std::string name_;
    bool knowsFree_ = false;
    std::multimap<std::size_t, Cell> free_; // by their sizes
};

} // namespace kestro::servicing
