// hive_file.h - a registry hive of an offline image: keys and values, read and written.
#pragma once

#include "hive_values.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct hive_h;

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
    struct Close {
        void operator()(hive_h* hive) const;
    };
    void Replace(Key key, const std::vector<HiveValue>& values);
    // The children of a key by their names in lower case. hivex reads all their names for each look-up.
    using Names = std::unordered_map<std::string, Key>;
    Names& NamesBelow(Key key) const;

    std::filesystem::path file_;
    std::unique_ptr<hive_h, Close> hive_;
    mutable std::unordered_map<Key, Names> names_;
    unsigned changes_ = 0;
};

} // namespace kestro::servicing
