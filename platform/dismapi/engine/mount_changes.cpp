// mount_changes.cpp - what has changed in a mount since it was last saved, and how that comes into an image
// file.
#include "mount_changes.h"

#include "image_parting.h"
#include "image_writer.h"
#include "lazy_mount.h"
#include "servicing_error.h"

#include <algorithm>
#include <memory>

namespace kestro::servicing {
namespace {

std::string Summary(std::size_t changed, std::size_t removed, std::size_t moved)
{
    return std::to_string(changed) + " new or changed, " + std::to_string(removed) + " removed, " +
           std::to_string(moved) + " moved";
}

std::string SummaryOf(const ReplayPlan& plan)
{
    using How = ReplayPlan::Directory::How;
    const auto count = [&](How how) {
        return static_cast<std::size_t>(
            std::count_if(plan.directories.begin(), plan.directories.end(),
                          [&](const auto& directory) { return directory.how == how; }));
    };
    return Summary(plan.files.size() + count(How::Made), plan.removed.size(), count(How::Moved));
}

// Changes of an extracted mount, for a system without FUSE.
TreeChanges ChangesOf(const MountRecord& record, const TreeState& former, const TreeState& now)
{
    TreeChanges changes = Compare(former, now);
    if (changes.touched.empty())
        return changes;

    // A file that was only touched keeps what the image knows of it, unless its content differs.
    const WimFile wim(record.image, WimFile::Access::Read, false, {});
    for (const std::string& path : changes.touched) {
        const FileState& file = now.at(path);
        const auto saved = wim.Find(record.index, path);
        const bool same =
            file.type == FileType::File &&
            (file.size == 0 || (saved && saved->hash == HashOfFile(record.directory + path)));
        if (!same)
            changes.added.push_back(path);
    }
    changes.touched.clear();
    return changes;
}

MountChanges AddAnew(const MountRecord& record, const TreeState& former, const TreeState& now,
                     const Progress& progress)
{
    const TreeChanges changes = ChangesOf(record, former, now);
    MountChanges found;
    found.empty = changes.Empty();
    found.summary = Summary(changes.added.size(), changes.removed.size(), 0);
    found.apply = [=](const std::string& imageFile, const WriteOptions& options) {
        WimFile wim(imageFile, WimFile::Access::Write, false, progress);
        wim.Apply(record.index, record.directory, changes);
        wim.Save(options);
    };
    return found;
}

MountChanges ReplayInto(const MountRecord& record, const std::string& serverProgram,
                        const UpperState& former, const UpperState& now, const Progress& progress)
{
    const std::string upper = record.IsLazy() ? LazyMount(record).Upper() : record.directory;
    RequireWindowsEntries(former, now);
    const ReplayPlan plan = PlanFromRecord(record, former, now, upper);
    MountChanges found;
    found.empty = plan.Empty();
    found.summary = SummaryOf(plan);
    found.apply = [=](const std::string& imageFile, const WriteOptions& options) {
        const ImageWriter writer = {serverProgram, imageFile, record.index};
        const auto replay = [&](const std::string& directory) {
            Replay(plan, {upper, directory, ReplayTarget::Image, record.directory}, progress);
            return true;
        };
        // Only the shown image tells whether there are any, and so it is shown once more where there are.
        std::vector<std::vector<std::string>> linked;
        const bool done = WriteImage(writer, options, [&](const std::string& directory) {
            if (options.standIn)
                linked = FindNamesToPart(plan, directory);
            return linked.empty() && replay(directory);
        });
        if (done)
            return;
        const auto parting = PartNames(imageFile, record.index, linked);
        WriteImage(writer, options, replay);
        if (parting)
            EndParting(imageFile, *parting);
    };
    return found;
}

bool CanWriteThroughMount(const std::string& serverProgram, const PlatformLog& log)
{
    try {
        if (serverProgram.empty())
            throw ServicingError(code::not_supported, "there is no program that serves images");
        LazyMount::RequireSystem();
        return true;
    } catch (const ServicingError& error) {
        log.Info(std::string("changed files lose what only Windows knows of them: ") +
                 error.what());
        return false;
    }
}

} // namespace

UpperState SavedUpperState(const MountEntry& entry)
{
    return entry.Record().layersAreOld ? UpperStateFromText(entry.State()) : UpperState{};
}

ReplayPlan PlanFromRecord(const MountRecord& record, const UpperState& former,
                          const UpperState& now, const std::string& upper)
{
    std::unique_ptr<WimFile> wim; // opened when it is needed
    return PlanReplay(former, now, upper, [&](const std::string& path) {
        if (!wim)
            wim = std::make_unique<WimFile>(record.image, WimFile::Access::Read, false, Progress{});
        return wim->Find(record.index, path);
    });
}

MountChanges FindMountChanges(const MountEntry& entry, const std::string& serverProgram,
                              const PlatformLog& log, const Progress& progress)
{
    const MountRecord& record = entry.Record();
    if (record.IsLazy()) {
        const UpperState now = ReadUpperState(LazyMount(record).Upper());
        MountChanges found =
            ReplayInto(record, serverProgram, SavedUpperState(entry), now, progress);
        found.state = ToText(now);
        return found;
    }
    const TreeState former = TreeStateFromText(entry.State());
    const TreeState now = ReadTreeState(record.directory);
    MountChanges found =
        CanWriteThroughMount(serverProgram, log)
            ? ReplayInto(record, serverProgram, ToUpperState(former), ToUpperState(now), progress)
            : AddAnew(record, former, now, progress);
    found.state = ToText(now);
    return found;
}

} // namespace kestro::servicing
