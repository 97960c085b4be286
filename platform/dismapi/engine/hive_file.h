// hive_file.h - a registry hive of an offline image: keys and values, read and written.
#pragma once

#include "hive_cells.h"
#include "hive_values.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestro::servicing {

// The hive is read into memory, with what its logs hold; Save writes a new file and leaves the one that
// was opened, and its logs, as they are. Names are UTF-8 and compare without case.
// Every function throws ServicingError for a damaged hive.
class HiveFile {
  public:
    using Key = std::size_t; // 0 is no key

    explicit HiveFile(const std::filesystem::path& file);

    // Promises that keys are only changed at these paths and below. Call it before the first change.
    void CheckForChanges(const std::vector<std::string>& paths) const;

    // `path` has '\' between the names of keys.
    Key Find(std::string_view path) const;
    Key Find(Key parent, std::string_view path) const;
    Key Make(std::string_view path);
    Key Make(Key parent, std::string_view path);
    // A key whose name has '\' or '/' in it, or that should not be taken for a path.
    Key Child(Key parent, const std::string& name) const;
    Key MakeChild(Key parent, const std::string& name);
    std::vector<Key> Children(Key key) const;
    std::string Name(Key key) const;
    bool IsEmpty(Key key) const; // neither keys nor values
    // With everything below it.
    void Remove(Key key);

    std::vector<HiveValue> Values(Key key) const;
    std::optional<HiveValue> Value(Key key, const std::string& name) const;
    // Sets these and keeps the others of the key. What is so already is not written again.
    void Set(Key key, const std::vector<HiveValue>& values);
    bool RemoveValue(Key key, const std::string& name);

    // How many changes were made. What only its logs hold is none.
    unsigned Changes() const { return changes_; }
    void Save(const std::filesystem::path& file);
    const std::filesystem::path& Path() const { return file_; }

  private:
    using Cell = HiveCells::Cell;
    // The subkeys of a key, which its list in the hive may be behind: lists are written last, each once.
    struct Subkeys {
        std::vector<Cell> cells;
        std::unordered_map<std::u16string, Cell> byName; // in upper case
        bool changed = false;
    };

    // Lists of keys, and keys (hive_keys.cpp).
    Subkeys& SubkeysOf(Key key) const;
    void ReadList(Cell list, bool ofLists, std::vector<Cell>& keys) const;
    Cell NewKey(Cell parent, const std::string& name);
    std::string FreeList(Cell key);
    void FreeKey(Cell key);
    void WriteList(Cell key, Subkeys& subkeys);
    Cell MakeLeaf(std::string_view id, const Cell* first, const Cell* last);
    void WriteLists();
    std::string_view StoredKeyName(Cell key, bool& narrow) const;
    std::u16string OrderName(Cell key) const;

    // Values (hive_file.cpp).
    std::vector<Cell> ValueCells(Cell key) const;
    std::string ValueName(Cell value) const;
    std::string Data(Cell value) const;
    Cell NewData(std::string_view bytes);
    Cell NewValue(const HiveValue& value);
    void FreeValue(Cell value);
    void SetValueCells(Cell key, const std::vector<Cell>& values);
    void Grow(Cell key, std::size_t field, std::size_t size);
    void NoteChange(Cell key);

    std::filesystem::path file_;
    HiveCells cells_;
    mutable std::unordered_map<Key, Subkeys> subkeys_;
    unsigned changes_ = 0;
};

} // namespace kestro::servicing
