// wim_links.cpp - the hard links in the tree of an image as it is stored.
#include "wim_links.h"

#include "servicing_error.h"
#include "text_encoding.h"
#include "wim_header.h"

#include <algorithm>
#include <optional>
#include <sstream>

namespace kestro::servicing {
namespace {

struct TreeEntry {
    static constexpr std::uint32_t kDirectory = 0x10, kReparsePoint = 0x400;
    static constexpr std::uint64_t kGroupAt = 88;

    std::uint64_t at = 0, next = 0; // the entry behind it, in the same directory
    std::uint64_t entries = 0;      // of a directory
    std::uint64_t group = 0;        // of a file that has several names
    std::uint32_t attributes = 0;
    std::string name; // UTF-16

    bool IsDirectory() const
    {
        return (attributes & (kDirectory | kReparsePoint)) == kDirectory && entries != 0;
    }
    // Other entries have something else in its place.
    bool MayBeLinked() const { return (attributes & (kDirectory | kReparsePoint)) == 0; }
};

class Tree {
  public:
    explicit Tree(const std::string& bytes) : bytes_(bytes) {}

    std::optional<TreeEntry> Find(const std::string& path) const
    {
        std::optional<TreeEntry> found = Root();
        std::istringstream names(path);
        std::string name;
        std::getline(names, name, '/'); // nothing, before the first
        while (found && std::getline(names, name, '/'))
            found = found->IsDirectory() ? FindIn(*found, Utf16Of(name)) : std::nullopt;
        return found;
    }
    std::uint64_t HighestGroup() const
    {
        std::uint64_t highest = 0;
        std::vector<std::uint64_t> waiting;
        if (const auto root = Root(); root && root->IsDirectory())
            waiting.push_back(root->entries);
        while (!waiting.empty()) {
            const std::uint64_t first = waiting.back();
            waiting.pop_back();
            for (auto entry = At(first); entry; entry = At(entry->next)) {
                if (entry->MayBeLinked())
                    highest = std::max(highest, entry->group);
                if (entry->IsDirectory())
                    waiting.push_back(entry->entries);
            }
        }
        return highest;
    }

  private:
    static std::uint64_t Align(std::uint64_t length) { return (length + 7) & ~std::uint64_t{7}; }
    std::uint64_t Number(std::uint64_t at, std::size_t size) const
    {
        if (at > bytes_.size() || size > bytes_.size() - at)
            throw ServicingError(code::bad_format, "the image's tree ends before its last entry");
        return LittleEndian(bytes_.data() + at, size);
    }
    std::optional<TreeEntry> Root() const
    {
        const std::uint64_t security = Align(Number(0, 4));
        return At(security == 0 ? 8 : security);
    }
    // Nothing at the end of a directory.
    std::optional<TreeEntry> At(std::uint64_t at) const
    {
        constexpr std::uint64_t head = 102, end = 8;
        const std::uint64_t length = Align(Number(at, 8));
        if (length <= end)
            return std::nullopt;
        TreeEntry entry;
        entry.at = at;
        entry.attributes = static_cast<std::uint32_t>(Number(at + 8, 4));
        entry.entries = Number(at + 16, 8);
        entry.group = Number(at + TreeEntry::kGroupAt, 8);
        const std::uint64_t nameSize = Number(at + 100, 2);
        if (nameSize != 0)
            Number(at + head + nameSize - 1, 1);
        entry.name = bytes_.substr(at + head, nameSize);
        entry.next = at + length;
        for (std::uint64_t streams = Number(at + 96, 2); streams > 0; --streams)
            entry.next += Align(Number(entry.next, 8));
        return entry;
    }
    std::optional<TreeEntry> FindIn(const TreeEntry& directory, const std::string& name) const
    {
        auto entry = At(directory.entries);
        while (entry && entry->name != name)
            entry = At(entry->next);
        return entry;
    }

    const std::string& bytes_;
};

} // namespace

bool PartFromGroup(std::string& tree, const std::vector<std::string>& paths)
{
    const Tree stored(tree);
    std::vector<TreeEntry> entries;
    for (const std::string& path : paths) {
        auto entry = stored.Find(path);
        if (!entry || !entry->MayBeLinked())
            return false;
        entries.push_back(std::move(*entry));
    }
    // A file of one name is in no group.
    std::uint64_t group = entries.size() > 1 ? stored.HighestGroup() + 1 : 0;
    if (entries.size() > 1 && group == 0)
        return false;
    for (const TreeEntry& entry : entries)
        for (std::size_t byte = 0; byte < sizeof group; ++byte)
            tree[entry.at + TreeEntry::kGroupAt + byte] = static_cast<char>(group >> byte * 8);
    return true;
}

} // namespace kestro::servicing
