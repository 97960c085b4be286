// mount_states.cpp - which mounts there are, and putting back those that a restart took.
#include "image_store.h"

#include "file_content.h"
#include "mount_changes.h"
#include "mount_checks.h"
#include "mount_table.h"
#include "servicing_error.h"

namespace kestro::servicing {

void ImageStore::PutBack(const std::string& directory)
{
    const std::optional<MountRecord> record = registry_.Peek(directory);
    if (!record || !record->IsLazy() || record->status != MountStatus::Mounted)
        return;
    try {
        MountEntry entry = Find(directory);
        PutBack(entry);
        if (Lazy(entry).Look() == MountPresence::Covered)
            throw ServicingError(code::not_a_valid_mount, "something else is mounted over " +
                                                              directory + "; unmount that first");
    } catch (const ServicingError& error) {
        // Whoever works on the mount puts it back.
        if (error.GetCode() != code::busy)
            throw;
    }
}

void ImageStore::PutBack(MountEntry& entry)
{
    const MountRecord& record = entry.Record();
    if (!record.IsLazy() || record.status != MountStatus::Mounted)
        return;
    const LazyMount lazy = Lazy(entry);
    const MountPresence presence = lazy.Look();
    RequireHere(presence, record.directory);
    if (presence != MountPresence::Broken)
        return;
    log_.Warning("the mount in " + record.directory + " is not served any more; it is put back");
    lazy.Clear();
    RequireSameDirectory(record);
    RequireEmptyDirectory(record.directory);
    RequireUnchangedImage(record);
    if (record.layersAreOld)
        RenewLayers(entry);
    Lazy(entry).Mount();
}

namespace {

void MakeLike(const std::string& directory, const std::vector<std::string>& made)
{
    struct stat status = {};
    if (stat(directory.c_str(), &status) != 0)
        throw SystemError("cannot look at " + directory);
    for (const std::string& path : made) {
        if (mkdir(path.c_str(), 0700) != 0)
            throw SystemError("cannot create " + path);
    }
    CopyOwnership(directory, status, made.back());
}

} // namespace

// An upper directory is about the image as it was when it was mounted. Over the image as it was saved a new
// one is needed, with what was not saved.
void ImageStore::RenewLayers(MountEntry& entry)
{
    const MountRecord old = entry.Record();
    const std::string upper = Lazy(entry).Upper();
    const UpperState now = ReadUpperState(upper);
    const ReplayPlan plan = PlanFromRecord(old, SavedUpperState(entry), now, upper);

    MountRecord next = old;
    const LayersIn place =
        entry.HasLayersIn(LayersIn::ImageFolder) ? LayersIn::ImageFolder : LayersIn::Record;
    RemoveOtherLayers(entry);
    next.layers = entry.NewLayers(place);
    // Nobody is to see it half done.
    MountRecord hidden = next;
    hidden.directory = next.layers + "/shown";
    const LazyMount fresh = Lazy(entry, hidden);
    try {
        MakeLike(upper, {next.layers, hidden.directory});
        fresh.MakeLayers();
        fresh.Mount();
        Replay(plan, {upper, hidden.directory, ReplayTarget::Mount, old.directory}, {});
        SyncFileSystem(next.layers);
    } catch (...) {
        fresh.Clear();
        fresh.Remove();
        throw;
    }
    fresh.Clear();
    next.layersAreOld = false;
    entry.Prepare(next, nullptr);
    entry.Adopt();
    RemoveOtherLayers(entry);
}

void ImageStore::RemoveOtherLayers(const MountEntry& entry) const
{
    MountRecord other = entry.Record();
    for (const LayersIn place : {LayersIn::Record, LayersIn::ImageFolder})
        for (const std::string& layers : entry.OtherLayers(place)) {
            other.layers = layers;
            Lazy(entry, other).Remove();
        }
}

namespace {

MountInfo InfoOf(const MountRecord& record)
{
    MountInfo info;
    info.image = record.image;
    info.index = record.index;
    info.directory = record.directory;
    info.readOnly = record.readOnly;
    info.lazy = record.IsLazy();
    return info;
}

void RequireIntact(const MountRecord& record, MountPresence presence)
{
    if (record.status != MountStatus::Mounted)
        throw ServicingError(code::not_a_valid_mount,
                             "it was never finished or is already being taken down");
    RequireUnchangedImage(record);
    // The root of what is mounted on a directory hides which one it is.
    if (!record.IsLazy() ||
        (presence == MountPresence::Broken && MountsOn(record.directory).empty()))
        RequireSameDirectory(record);
}

} // namespace

MountInfo ImageStore::Describe(const MountEntry& entry) const
{
    const MountRecord& record = entry.Record();
    MountInfo info = InfoOf(record);
    const MountPresence presence = record.IsLazy() ? Lazy(entry).Look() : MountPresence::Whole;
    try {
        RequireIntact(record, presence);
    } catch (const ServicingError& error) {
        info.state = MountState::Invalid;
        info.reason = error.what();
        return info;
    }
    if (presence == MountPresence::Covered)
        info.reason = "something else is mounted over it";
    try {
        RequireHere(presence, record.directory);
    } catch (const ServicingError& error) {
        info.reason = error.what(); // where it is, it may well be whole
    }
    if (presence == MountPresence::Broken) {
        info.state = MountState::NeedsRemount;
        info.reason = "nobody serves it any more";
    }
    return info;
}

std::vector<MountInfo> ImageStore::Mounts() const
{
    std::vector<MountInfo> mounts;
    for (const MountRecord& record : registry_.All()) {
        try {
            if (const auto entry = registry_.FindDirectory(record.directory, WhenBusy::Throw))
                mounts.push_back(Describe(*entry));
        } catch (const ServicingError& error) {
            MountInfo& info = mounts.emplace_back(InfoOf(record));
            info.reason = error.what();
            if (error.GetCode() != code::busy)
                info.state = MountState::Invalid;
        }
    }
    for (const DamagedMount& damaged : registry_.Damaged()) {
        MountInfo& info = mounts.emplace_back();
        info.index = 0;
        info.directory = damaged.directory;
        info.damaged = true;
        info.state = MountState::Invalid;
        info.reason = damaged.reason;
    }
    return mounts;
}

} // namespace kestro::servicing
