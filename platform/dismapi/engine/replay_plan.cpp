// replay_plan.cpp - what has to be done to a saved image so that it becomes what its mount shows.
#include "replay_plan.h"

#include "saved_places.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

namespace kestro::servicing {
namespace {

using Directory = ReplayPlan::Directory;
// What a WIM keeps of a time.
long long InWim(long long nanoseconds)
{
    return nanoseconds - nanoseconds % 100;
}

class Planner {
  public:
    Planner(const UpperState& former, const UpperState& now, const std::string& upper,
            const SavedFiles& saved)
        : former_(former), now_(now), upper_(upper), saved_(saved), places_(former, now)
    {
    }

    ReplayPlan Make()
    {
        PlanDirectories();
        PlanRemovals();
        PlanFiles();
        // Looking into an image that is otherwise not needed is worth it only for this answer.
        if (plan_.removed.empty() && plan_.files.empty() && OnlyTimesLeft())
            std::erase_if(plan_.directories, [&](const Directory& directory) {
                const auto saved = saved_(directory.from);
                return saved &&
                       InWim(saved->modified) == InWim(now_.at(directory.path).file.modified);
            });
        return std::move(plan_);
    }

  private:
    void PlanDirectories();
    void PlanRemovals();
    void PlanFiles();
    void PlanFile(const std::vector<std::string>& names);
    void FindMovedNames(ReplayPlan::File& file, const UpperEntry& entry);
    bool HasSavedContent(const ReplayPlan::Name& name, const UpperEntry& entry) const;
    void LeaveDirectoryOf(const std::string& savedPath);
    bool OnlyTimesLeft() const;

    const UpperState& former_;
    const UpperState& now_;
    const std::string& upper_;
    const SavedFiles& saved_;
    SavedPlaces places_;
    std::set<std::string> taken_; // saved names that other names have got
    ReplayPlan plan_;
};

bool Planner::OnlyTimesLeft() const
{
    return std::all_of(
        plan_.directories.begin(), plan_.directories.end(),
        [](const Directory& directory) { return directory.how == Directory::How::Kept; });
}

void Planner::PlanDirectories()
{
    for (const auto& [path, entry] : now_) {
        if (entry.file.type != FileType::Directory)
            continue;
        Directory directory{path, Directory::How::Made, {}};
        if (const auto place = places_.AddDirectory(path)) {
            directory.from = *place;
            directory.how =
                place == places_.SavedPathOf(path) ? Directory::How::Kept : Directory::How::Moved;
        }
        const UpperEntry* const former = places_.FormerOf(path);
        // One whose entries changed has another time of last write.
        if (directory.how != Directory::How::Kept || former == nullptr ||
            former->file.modified != entry.file.modified)
            plan_.directories.push_back(std::move(directory));
    }
    for (const Directory& directory : plan_.directories)
        if (directory.how == Directory::How::Moved)
            LeaveDirectoryOf(directory.from);
}

void Planner::LeaveDirectoryOf(const std::string& savedPath)
{
    if (const auto path = places_.NowPathOf(ParentOf(savedPath)))
        plan_.left.push_back(*path);
}

void Planner::PlanRemovals()
{
    for (const auto& [path, entry] : now_) {
        const UpperEntry* const former = places_.FormerOf(path);
        if (entry.whiteout && places_.SavedPathOf(path) && (former == nullptr || !former->whiteout))
            plan_.removed.push_back(path);
    }
    for (const auto& [savedPath, entry] : former_) {
        if (entry.whiteout)
            continue;
        const auto parent = places_.NowPathOf(ParentOf(savedPath));
        if (!parent)
            continue;
        if (const std::string path = *parent + NameOf(savedPath); !now_.contains(path))
            plan_.removed.push_back(path);
    }
}

void Planner::PlanFiles()
{
    std::unordered_map<unsigned long long, std::vector<std::string>> links;
    for (const auto& [path, entry] : now_)
        if (entry.file.type == FileType::File)
            links[entry.file.inode].push_back(path);
    for (const auto& [path, entry] : now_) {
        if (entry.whiteout || entry.file.type == FileType::Directory)
            continue;
        if (entry.file.type != FileType::File)
            PlanFile({path});
        else if (const auto& names = links.at(entry.file.inode); names.front() == path)
            PlanFile(names);
    }
}

// Which names of the file the saved image has under other names.
void Planner::FindMovedNames(ReplayPlan::File& file, const UpperEntry& entry)
{
    std::vector<std::string> left = places_.LeftNamesOf(entry);
    for (ReplayPlan::Name& name : file.names) {
        if (places_.IsInPlace(name.path, entry))
            continue;
        while (!left.empty() && !taken_.insert(left.back()).second)
            left.pop_back();
        if (left.empty())
            return;
        name.from = left.back();
        LeaveDirectoryOf(name.from);
    }
}

void Planner::PlanFile(const std::vector<std::string>& names)
{
    const UpperEntry& entry = now_.at(names.front());
    ReplayPlan::File file{entry.file.type, {}, entry.file.size, true};
    for (const std::string& path : names)
        file.names.push_back({path, {}, 0, {}});
    FindMovedNames(file, entry);
    bool unchanged = true, moved = false;
    for (ReplayPlan::Name& name : file.names) {
        const bool hasMoved = !name.from.empty();
        name.savedAs = hasMoved ? name.from : places_.SavedPathOf(name.path).value_or("");
        const UpperEntry* const former = places_.FormerAt(name.savedAs);
        moved = moved || hasMoved;
        unchanged = unchanged && former != nullptr && former->file == entry.file;
        if (former != nullptr && former->file.type == FileType::File)
            name.group = former->file.inode;
    }
    if (unchanged && !moved)
        return;
    for (std::size_t i = 0; i < names.size() && file.write && file.type == FileType::File; ++i)
        if (HasSavedContent(file.names[i], entry)) {
            file.write = false;
            std::swap(file.names.front(), file.names[i]);
        }
    const auto& first = file.names.front();
    const bool allLinked =
        std::all_of(file.names.begin() + 1, file.names.end(), [&](const ReplayPlan::Name& name) {
            return name.group != 0 && name.group == first.group;
        });
    if (file.write || !allLinked || moved)
        plan_.files.push_back(std::move(file));
}

// Whether the saved image has the file as it is, though something happened to it: it was opened for
// writing, renamed, or its mode changed.
bool Planner::HasSavedContent(const ReplayPlan::Name& name, const UpperEntry& entry) const
{
    const bool hasMoved = !name.from.empty();
    const auto path = hasMoved ? std::optional(name.from) : places_.SavedPathOf(name.path);
    if (!path)
        return false;
    if (const UpperEntry* const former = places_.FormerAt(*path)) {
        if (former->file.size != entry.file.size || former->file.modified != entry.file.modified ||
            former->file.inode != entry.file.inode)
            return false;
    } else {
        // Made here, or written after the overlay copied it.
        const bool isNew = !hasMoved && !places_.IsInPlace(name.path, entry);
        if (isNew || (entry.file.born != 0 && entry.file.modified > entry.file.born))
            return false;
    }
    const auto saved = saved_(*path);
    if (!saved || InWim(saved->modified) != InWim(entry.file.modified))
        return false;
    return entry.file.size == 0 ? saved->hash.empty()
                                : saved->hash == HashOfFile(upper_ + name.path);
}

} // namespace

ReplayPlan PlanReplay(const UpperState& former, const UpperState& now, const std::string& upper,
                      const SavedFiles& saved)
{
    return Planner(former, now, upper, saved).Make();
}

} // namespace kestro::servicing
