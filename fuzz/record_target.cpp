// record_target.cpp - what is kept on disk of a mounted image.
#include "image_store.h"
#include "replay_plan.h"
#include "scratch.h"
#include "servicing_error.h"
#include "targets.h"
#include "tree_state.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace kestro::fuzz {
namespace {

// No such paths exist, so that no record can lead to a file.
constexpr char kDirectory[] = "/nonexistent/mount";
constexpr char kImage[] = "/nonexistent/image.wim";

void RequireInside(const std::string& path)
{
    Require(servicing::IsPlainPath(path), "no path leads out of the image, as " + path + " does");
}

// What has changed since the state, or up to it.
void UseUpperState(const servicing::UpperState& former, const servicing::UpperState& now)
{
    using namespace servicing;
    const auto saved = [](const std::string& path) -> std::optional<SavedFile> {
        RequireInside(path);
        return path.size() % 2 == 0 ? std::optional(SavedFile{}) : std::nullopt;
    };
    try {
        RequireWindowsEntries(former, now);
        const ReplayPlan plan = PlanReplay(former, now, "/nonexistent/upper", saved);
        for (const auto& directory : plan.directories) {
            RequireInside(directory.path);
            RequireInside(directory.from);
        }
        for (const auto& file : plan.files)
            for (const auto& name : file.names) {
                RequireInside(name.path);
                RequireInside(name.from);
            }
        for (const std::string& path : plan.removed)
            RequireInside(path);
    } catch (const ServicingError&) {
    }
}

// Of a lazy mount that was saved, the changes up to then; else everything that was extracted.
std::string UseState(const servicing::MountEntry& entry)
{
    using namespace servicing;
    if (entry.Record().IsLazy()) {
        const UpperState upper = UpperStateFromText(entry.State());
        Require(UpperStateFromText(ToText(upper)) == upper,
                "changes are read as they were written");
        UseUpperState(upper, {});
        UseUpperState({}, upper);
        UpperState later = upper;
        if (!later.empty())
            later.erase(std::next(later.begin(), static_cast<long>(later.size() / 2)));
        UseUpperState(upper, later);
        UseUpperState(later, upper);
        return ToText(upper);
    }
    const TreeState tree = TreeStateFromText(entry.State());
    Require(TreeStateFromText(ToText(tree)) == tree, "a tree is read as it was written");
    Compare(tree, {});
    Compare({}, tree);
    UseUpperState(ToUpperState(tree), {});
    return ToText(tree);
}

void UseEntry(servicing::MountEntry& entry)
{
    const std::string state = UseState(entry);
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
    ImageStore(scratch / "records", {}).Mounts(); // whatever is wrong with them can be listed
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
