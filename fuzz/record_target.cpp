// record_target.cpp - what is kept on disk of a mounted image.
#include "mount_record.h"
#include "scratch.h"
#include "servicing_error.h"
#include "targets.h"
#include "tree_state.h"

#include <algorithm>
#include <vector>

namespace kestro::fuzz {
namespace {

// No such paths exist, so that no record can lead to a file.
constexpr char kDirectory[] = "/nonexistent/mount";
constexpr char kImage[] = "/nonexistent/image.wim";

void UseEntry(servicing::MountEntry& entry)
{
    const servicing::TreeState tree = servicing::TreeStateFromText(entry.State());
    Require(servicing::TreeStateFromText(ToText(tree)) == tree, "a tree is read as it was written");
    Compare(tree, {});
    Compare({}, tree);
    const std::string state = ToText(tree);
    entry.PrepareMounted(state);
    entry.SetMounted();
    entry.Prepare(entry.Record(), &state);
    entry.Recover();
}

} // namespace

// An input holds the files of one record's folder, with a line "---" between them.
void MountRecord(const std::string& input)
{
    using namespace servicing;
    const Scratch scratch;
    const std::string separator = "\n---\n";
    std::size_t start = 0;
    for (const char* name : {"record.json", "tree", "next.json", "next-tree"}) {
        const auto end = std::min(input.find(separator, start), input.size());
        WriteFile(scratch / "records/0123" / name, input.substr(start, end - start));
        if (end == input.size())
            break;
        start = end + separator.size();
    }
    const MountRegistry registry(scratch / "records");
    try {
        registry.FindImage(kImage, 1);
        if (auto entry = registry.FindDirectory(kDirectory)) {
            Require(entry->Record().directory == kDirectory, "a mount stays where it is");
            UseEntry(*entry);
            entry->Remove();
        }
    } catch (const ServicingError&) {
    }
}

} // namespace kestro::fuzz
