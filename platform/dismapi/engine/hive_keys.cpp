// hive_keys.cpp - the keys of a registry hive: finds, makes and removes them, and writes their lists.
#include "hive_file.h"
#include "hive_layout.h"
#include "hive_names.h"
#include "image_tree.h"
#include "servicing_error.h"

#include <algorithm>

namespace kestro::servicing {

using namespace hive_layout;

// --- lists -------------------------------------------------------------------------------------------

// A list of the key's subkeys, or of such lists for a key that has many.
void HiveFile::ReadList(Cell list, bool ofLists, std::vector<Cell>& keys) const
{
    const std::string_view id = cells_.Id(list);
    const std::size_t step = id == "lf" || id == "lh" ? 8 : 4;
    if (step == 4 && id != "li" && (id != "ri" || !ofLists))
        cells_.Refuse("a list of keys is none");
    const std::size_t count = cells_.Half(list, list_field::count);
    if (list_field::entries + count * step > cells_.Room(list) + 4)
        cells_.Refuse("a list of keys is too long");
    for (std::size_t i = 0; i < count; ++i) {
        const Cell cell = cells_.Word(list, list_field::entries + i * step);
        if (id == "ri") {
            ReadList(cell, false, keys);
        } else {
            cells_.Expect(cell, "nk");
            keys.push_back(cell);
        }
    }
}

HiveFile::Subkeys& HiveFile::SubkeysOf(Key key) const
{
    const auto cell = static_cast<Cell>(key);
    const auto known = subkeys_.find(key);
    if (known != subkeys_.end())
        return known->second;
    Subkeys subkeys;
    if (cells_.Word(cell, key_field::subkeys) != 0)
        ReadList(cells_.Word(cell, key_field::subkeyList), true, subkeys.cells);
    for (const Cell subkey : subkeys.cells)
        subkeys.byName.emplace(OrderName(subkey), subkey);
    return subkeys_.emplace(key, std::move(subkeys)).first->second;
}

std::string_view HiveFile::StoredKeyName(Cell key, bool& narrow) const
{
    narrow = (cells_.Half(key, key_field::flags) & kNarrowKey) != 0;
    return cells_.Bytes(key, key_field::name, cells_.Half(key, key_field::nameLength));
}

std::string HiveFile::Name(Key key) const
{
    bool narrow = false;
    const auto name = StoredKeyName(static_cast<Cell>(key), narrow);
    return NameText(name, narrow);
}

std::u16string HiveFile::OrderName(Cell key) const
{
    bool narrow = false;
    const auto name = StoredKeyName(key, narrow);
    return UpperName(name, narrow);
}

HiveFile::Cell HiveFile::MakeLeaf(std::string_view id, const Cell* first, const Cell* last)
{
    const auto count = static_cast<std::size_t>(last - first);
    const std::size_t step = id == "li" ? 4 : 8;
    const Cell leaf = cells_.Allocate(list_field::entries - 4 + count * step);
    cells_.Put(leaf, 4, id);
    cells_.PutHalf(leaf, list_field::count, static_cast<std::uint16_t>(count));
    std::size_t entry = list_field::entries;
    for (; first != last; ++first, entry += step) {
        cells_.PutWord(leaf, entry, *first);
        if (id == "lh") {
            cells_.PutWord(leaf, entry + 4, NameHash(OrderName(*first)));
        } else if (id == "lf") {
            bool narrow = false;
            const auto name = StoredKeyName(*first, narrow);
            cells_.Put(leaf, entry + 4, NameHint(name, narrow));
        }
    }
    return leaf;
}

// Returns what kind of list it was.
std::string HiveFile::FreeList(Cell key)
{
    if (cells_.Word(key, key_field::subkeys) == 0)
        return cells_.HasHashes() ? "lh" : "lf";
    const Cell list = cells_.Word(key, key_field::subkeyList);
    std::string id(cells_.Id(list));
    if (id == "ri") {
        for (std::size_t i = 0; i < cells_.Half(list, list_field::count); ++i) {
            const Cell leaf = cells_.Word(list, list_field::entries + i * 4);
            id = cells_.Id(leaf);
            cells_.Free(leaf);
        }
    }
    cells_.Free(list);
    return id;
}

// As large as one page of the hive has room for.
constexpr std::size_t kLongestLeaf = 507;

void HiveFile::WriteList(Cell key, Subkeys& subkeys)
{
    std::vector<std::pair<std::u16string, Cell>> named;
    for (const Cell subkey : subkeys.cells)
        named.emplace_back(OrderName(subkey), subkey);
    std::sort(named.begin(), named.end());
    std::vector<Cell>& keys = subkeys.cells;
    keys.clear();
    for (const auto& [name, subkey] : named)
        keys.push_back(subkey);

    const std::string id = FreeList(key);
    std::vector<Cell> leaves;
    for (std::size_t at = 0; at < keys.size(); at += kLongestLeaf)
        leaves.push_back(
            MakeLeaf(id, &keys[at], &keys[at] + std::min(kLongestLeaf, keys.size() - at)));
    Cell list = leaves.empty() ? HiveCells::kNone : leaves.front();
    if (leaves.size() > 1) {
        list = cells_.Allocate(list_field::entries - 4 + leaves.size() * 4);
        cells_.Put(list, 4, "ri");
        cells_.PutHalf(list, list_field::count, static_cast<std::uint16_t>(leaves.size()));
        for (std::size_t i = 0; i < leaves.size(); ++i)
            cells_.PutWord(list, list_field::entries + i * 4, leaves[i]);
    }
    cells_.PutWord(key, key_field::subkeys, static_cast<std::uint32_t>(keys.size()));
    cells_.PutWord(key, key_field::subkeyList, list);
    subkeys.changed = false;
}

void HiveFile::WriteLists()
{
    for (auto& [key, subkeys] : subkeys_)
        if (subkeys.changed)
            WriteList(static_cast<Cell>(key), subkeys);
}

// --- keys --------------------------------------------------------------------------------------------

HiveFile::Key HiveFile::Child(Key parent, const std::string& name) const
{
    if (!parent)
        return 0;
    const Subkeys& subkeys = SubkeysOf(parent);
    const StoredName stored = NameBytes(name);
    const auto found = subkeys.byName.find(UpperName(stored.bytes, stored.narrow));
    return found == subkeys.byName.end() ? 0 : found->second;
}

std::vector<HiveFile::Key> HiveFile::Children(Key key) const
{
    if (!key)
        return {};
    const std::vector<Cell>& cells = SubkeysOf(key).cells;
    return {cells.begin(), cells.end()};
}

// With the security of its parent.
HiveFile::Cell HiveFile::NewKey(Cell parent, const std::string& name)
{
    constexpr std::size_t longest = 255;
    const StoredName stored = NameBytes(name);
    if (Utf16(name).size() > longest * 2)
        throw ServicingError(code::invalid_name, "too long for a registry key: " + name);
    const Cell security = cells_.Word(parent, key_field::security);
    cells_.Expect(security, "sk");
    const Cell key = cells_.Allocate(key_field::name - 4 + stored.bytes.size());
    cells_.Put(key, 4, "nk");
    cells_.PutHalf(key, key_field::flags, stored.narrow ? kNarrowKey : 0);
    cells_.PutWord(key, key_field::parent, parent);
    for (const std::size_t field : {key_field::subkeyList, key_field::volatileList,
                                    key_field::valueList, key_field::className})
        cells_.PutWord(key, field, HiveCells::kNone);
    cells_.PutWord(key, key_field::security, security);
    cells_.PutWord(security, security_field::uses, cells_.Word(security, security_field::uses) + 1);
    cells_.PutHalf(key, key_field::nameLength, static_cast<std::uint16_t>(stored.bytes.size()));
    cells_.Put(key, key_field::name, stored.bytes);
    cells_.PutHalf(parent, key_field::longestSubkeyName,
                   std::max(cells_.Half(parent, key_field::longestSubkeyName),
                            static_cast<std::uint16_t>(Utf16(name).size())));
    return key;
}

HiveFile::Key HiveFile::MakeChild(Key parent, const std::string& name)
{
    if (const Key child = Child(parent, name))
        return child;
    const Cell key = NewKey(static_cast<Cell>(parent), name);
    Subkeys& subkeys = SubkeysOf(parent);
    subkeys.byName.emplace(OrderName(key), key);
    subkeys.cells.push_back(key);
    subkeys.changed = true;
    NoteChange(key);
    NoteChange(static_cast<Cell>(parent));
    return key;
}

// With everything below it.
void HiveFile::FreeKey(Cell key)
{
    for (const Key subkey : Children(key))
        FreeKey(static_cast<Cell>(subkey));
    subkeys_.erase(key);
    FreeList(key);
    for (const Cell value : ValueCells(key))
        FreeValue(value);
    SetValueCells(key, {});
    if (const Cell name = cells_.Word(key, key_field::className);
        name != HiveCells::kNone && cells_.Half(key, key_field::classNameLength) != 0)
        cells_.Free(name);
    const Cell security = cells_.Word(key, key_field::security);
    cells_.Expect(security, "sk");
    const std::uint32_t uses = cells_.Word(security, security_field::uses);
    cells_.PutWord(security, security_field::uses, uses > 1 ? uses - 1 : uses);
    cells_.Free(key);
}

void HiveFile::Remove(Key key)
{
    const auto parent = cells_.Word(static_cast<Cell>(key), key_field::parent);
    cells_.Expect(parent, "nk");
    Subkeys& subkeys = SubkeysOf(parent);
    if (std::erase(subkeys.cells, static_cast<Cell>(key)) == 0)
        cells_.Refuse("a key is not below the one that it names");
    std::erase_if(subkeys.byName, [&](const auto& named) { return named.second == key; });
    subkeys.changed = true;
    FreeKey(static_cast<Cell>(key));
    NoteChange(parent);
}

} // namespace kestro::servicing
