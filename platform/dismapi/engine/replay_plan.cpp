// replay_plan.cpp - what has to be done to a saved image so that it becomes what its mount shows.
#include "replay_plan.h"

#include "file_system.h"
#include "servicing_error.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace kestro::servicing {
namespace {

using Directory = ReplayPlan::Directory;
using Places = std::unordered_map<std::string, std::string>;

std::string ParentOf(const std::string& path)
{
    return path.substr(0, path.rfind('/'));
}

std::string NameOf(const std::string& path)
{
    return path.substr(path.rfind('/'));
}

void RequirePlainPath(const std::string& path)
{
    const std::string closed = path + "/";
    if (closed.find("/../") != std::string::npos || closed.find("/./") != std::string::npos ||
        closed.find("//") != std::string::npos)
        throw ServicingError(code::not_a_valid_mount, "the overlay notes an impossible " + path);
}

// The sources of all directories of the state through which the image shows.
Places SourcesOf(const UpperState& state)
{
    Places sources{{"", ""}};
    for (const auto& [path, entry] : state) {
        if (entry.file.type != FileType::Directory || entry.opaque)
            continue;
        const auto parent = sources.find(ParentOf(path));
        if (entry.redirect.starts_with('/')) {
            RequirePlainPath(entry.redirect);
            sources.emplace(path, entry.redirect);
        } else if (parent != sources.end()) {
            std::string source = parent->second;
            source += entry.redirect.empty() ? NameOf(path) : "/" + entry.redirect;
            RequirePlainPath(source);
            sources.emplace(path, std::move(source));
        }
    }
    return sources;
}

Places Inverse(const Places& places)
{
    Places inverse;
    for (const auto& [from, to] : places)
        inverse.emplace(to, from);
    return inverse;
}

// What a WIM keeps of a time.
long long InWim(long long nanoseconds)
{
    return nanoseconds - nanoseconds % 100;
}

class Planner {
  public:
    Planner(const UpperState& former, const UpperState& now, const std::string& upper,
            const SavedFiles& saved)
        : former_(former), now_(now), upper_(upper), saved_(saved),
          formerSources_(SourcesOf(former)), sources_(SourcesOf(now)),
          formerPlaces_(Inverse(formerSources_))
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
                const auto saved = saved_(savedPaths_.at(directory.path));
                return saved &&
                       InWim(saved->modified) == InWim(now_.at(directory.path).file.modified);
            });
        return std::move(plan_);
    }

  private:
    void PlanDirectories();
    Directory PlanDirectory(const std::string& path);
    void PlanRemovals();
    void PlanFiles();
    void PlanFile(const std::vector<std::string>& names);
    bool HasSavedContent(const std::string& path, const UpperEntry& entry);

    std::string SavedPlaceOf(const std::string& source) const;
    // The path in the saved image; none below a directory that is new.
    std::optional<std::string> SavedPathOf(const std::string& path) const;
    const UpperEntry* FormerOf(const std::string& path) const;
    bool OnlyTimesLeft() const;

    const UpperState& former_;
    const UpperState& now_;
    const std::string& upper_;
    const SavedFiles& saved_;
    const Places formerSources_, sources_, formerPlaces_;
    Places savedPaths_{{"", ""}}; // of directories that the saved image has
    ReplayPlan plan_;
};

std::string Planner::SavedPlaceOf(const std::string& source) const
{
    for (std::string prefix = source;; prefix = ParentOf(prefix))
        if (const auto place = formerPlaces_.find(prefix); place != formerPlaces_.end())
            return place->second + source.substr(prefix.size());
}

std::optional<std::string> Planner::SavedPathOf(const std::string& path) const
{
    const auto parent = savedPaths_.find(ParentOf(path));
    if (parent == savedPaths_.end())
        return std::nullopt;
    return parent->second + NameOf(path);
}

const UpperEntry* Planner::FormerOf(const std::string& path) const
{
    const auto saved = SavedPathOf(path);
    const auto found = saved ? former_.find(*saved) : former_.end();
    return found == former_.end() ? nullptr : &found->second;
}

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
        Directory directory = PlanDirectory(path);
        const UpperEntry* const former = FormerOf(path);
        // One whose entries changed has another time of last write.
        if (directory.how != Directory::How::Kept || former == nullptr ||
            former->file.modified != entry.file.modified)
            plan_.directories.push_back(std::move(directory));
    }
}

Directory Planner::PlanDirectory(const std::string& path)
{
    const auto expected = SavedPathOf(path);
    Directory directory{path, Directory::How::Made, {}};
    if (const auto source = sources_.find(path); source != sources_.end()) {
        const std::string place = SavedPlaceOf(source->second);
        directory.how = place == expected ? Directory::How::Kept : Directory::How::Moved;
        directory.from = place;
        savedPaths_.emplace(path, place);
        return directory;
    }
    const auto former = expected ? former_.find(*expected) : former_.end();
    if (former != former_.end() && former->second.file.type == FileType::Directory &&
        !formerSources_.contains(*expected)) {
        directory.how = Directory::How::Kept;
        savedPaths_.emplace(path, *expected);
    }
    return directory;
}

void Planner::PlanRemovals()
{
    for (const auto& [path, entry] : now_) {
        const UpperEntry* const former = FormerOf(path);
        if (entry.whiteout && SavedPathOf(path) && (former == nullptr || !former->whiteout))
            plan_.removed.push_back(path);
    }
    const Places nowPaths = Inverse(savedPaths_);
    for (const auto& [savedPath, entry] : former_) {
        const auto parent = nowPaths.find(ParentOf(savedPath));
        if (entry.whiteout || parent == nowPaths.end())
            continue;
        if (const std::string path = parent->second + NameOf(savedPath); !now_.contains(path))
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

void Planner::PlanFile(const std::vector<std::string>& names)
{
    const UpperEntry& entry = now_.at(names.front());
    ReplayPlan::File file{entry.file.type, {}, entry.file.size, true};
    bool unchanged = true;
    for (const std::string& path : names) {
        const UpperEntry* const former = FormerOf(path);
        unchanged = unchanged && former != nullptr && former->file == entry.file;
        file.names.push_back({path, 0});
        if (former != nullptr && former->file.type == FileType::File)
            file.names.back().group = former->file.inode;
    }
    if (unchanged)
        return;
    for (std::size_t i = 0; i < names.size() && file.write && file.type == FileType::File; ++i)
        if (HasSavedContent(names[i], entry)) {
            file.write = false;
            std::swap(file.names.front(), file.names[i]);
        }
    const auto& first = file.names.front();
    const bool allLinked =
        std::all_of(file.names.begin() + 1, file.names.end(), [&](const ReplayPlan::Name& name) {
            return name.group != 0 && name.group == first.group;
        });
    if (file.write || !allLinked)
        plan_.files.push_back(std::move(file));
}

// Whether the saved image has the file as it is, though something happened to it: it was opened for
// writing, or its mode changed.
bool Planner::HasSavedContent(const std::string& path, const UpperEntry& entry)
{
    if (const UpperEntry* const former = FormerOf(path)) {
        if (former->file.size != entry.file.size || former->file.modified != entry.file.modified ||
            former->file.inode != entry.file.inode)
            return false;
    } else {
        struct statx status = {};
        // Written after the overlay made it.
        if (statx(AT_FDCWD, (upper_ + path).c_str(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) ==
                0 &&
            (status.stx_mask & STATX_BTIME) != 0 &&
            entry.file.modified > Nanoseconds({status.stx_btime.tv_sec, status.stx_btime.tv_nsec}))
            return false;
    }
    const auto savedPath = SavedPathOf(path);
    const auto saved = savedPath ? saved_(*savedPath) : std::nullopt;
    if (!saved || InWim(saved->modified) != InWim(entry.file.modified))
        return false;
    return entry.file.size == 0 ? saved->hash.empty() : saved->hash == HashOfFile(upper_ + path);
}

} // namespace

ReplayPlan PlanReplay(const UpperState& former, const UpperState& now, const std::string& upper,
                      const SavedFiles& saved)
{
    return Planner(former, now, upper, saved).Make();
}

} // namespace kestro::servicing
