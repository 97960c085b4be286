// mount_states.cpp - which mounts there are, and putting back those that a restart took.
#include "image_store.h"
#include "mount_checks.h"
#include "mount_table.h"
#include "servicing_error.h"

namespace kestro::servicing {

void ImageStore::PutBack(const std::string& directory)
{
    const std::optional<MountRecord> record = registry_.Peek(directory);
    if (!record || !record->IsLazy() || record->status != MountStatus::Mounted)
        return;
    MountEntry entry = Find(directory);
    PutBack(entry);
}

void ImageStore::PutBack(MountEntry& entry)
{
    const MountRecord& record = entry.Record();
    if (!record.IsLazy() || record.status != MountStatus::Mounted)
        return;
    const LazyMount lazy = Lazy(entry);
    const MountPresence presence = lazy.Look();
    RequireHere(presence, record.directory);
    if (presence == MountPresence::Whole)
        return;
    log_.Warning("the mount in " + record.directory + " is not served any more; it is put back");
    lazy.Clear();
    RequireSameDirectory(record);
    RequireEmptyDirectory(record.directory);
    RequireUnchangedImage(record);
    lazy.Mount();
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
            if (const auto entry = registry_.FindDirectory(record.directory))
                mounts.push_back(Describe(*entry));
        } catch (const ServicingError& error) {
            MountInfo& info = mounts.emplace_back(InfoOf(record));
            info.reason = error.what();
            if (error.GetCode() != code::busy)
                info.state = MountState::Invalid;
        }
    }
    return mounts;
}

} // namespace kestro::servicing
