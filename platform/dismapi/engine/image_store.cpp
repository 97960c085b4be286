// image_store.cpp - mounting image files into directories, saving and dropping their changes.
#include "image_store.h"

#include "image_choice.h"
#include "mount_changes.h"
#include "mount_checks.h"
#include "servicing_error.h"

#include <chrono>
#include <cstdio>

namespace kestro::servicing {
namespace {

class Stopwatch {
  public:
    std::string Text() const
    {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
        char text[32];
        std::snprintf(text, sizeof text, "%.2f s", elapsed.count());
        return text;
    }

  private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

std::string ImageText(const std::string& image, unsigned index)
{
    return "image " + std::to_string(index) + " of " + image;
}

void RequireReadableImage(const MountRequest& request)
{
    struct stat status = {};
    if (stat(request.image.c_str(), &status) != 0)
        throw SystemError("cannot find the image file " + request.image);
    if (!S_ISREG(status.st_mode))
        throw ServicingError(code::access_denied, request.image + " is not a file");
    if (request.readOnly)
        return;
    // Asked of the mode too: a privileged process may write what nobody is meant to.
    if ((status.st_mode & 0222) == 0 || access(request.image.c_str(), W_OK) != 0)
        throw ServicingError(code::image_file_read_only, request.image + " is read-only");
}

bool HasIntegrityData(const MountRecord& record)
{
    return !record.imageIdentity.header.IntegrityTable().IsAbsent();
}

} // namespace

bool ImageStore::IsMounted(const std::string& directory) const
{
    return registry_.FindDirectory(directory).has_value();
}

void ImageStore::Mount(const MountRequest& request, const Progress& progress)
{
    const Stopwatch stopwatch;
    const FileDescriptor lock = registry_.Lock();

    if (registry_.FindDirectory(request.directory))
        throw ServicingError(code::directory_in_use,
                             request.directory + " already holds a mounted image");
    RequireReadableImage(request);
    RequireEmptyDirectory(request.directory);

    MountRecord record;
    record.image = request.image;
    record.imageIdentity = ImageIdentityOf(request.image);
    record.index = ChooseImage(request);
    if (const auto other = registry_.FindImage(request.image, record.index);
        other && !(other->readOnly && request.readOnly))
        throw ServicingError(other->readOnly ? code::image_mounted : code::image_mounted_read_write,
                             ImageText(request.image, record.index) + " is already mounted in " +
                                 other->directory);
    record.directory = request.directory;
    record.directoryIdentity = DirectoryIdentity(request.directory);
    record.readOnly = request.readOnly;

    log_.Info("mounting " + ImageText(request.image, record.index) + " into " + request.directory);
    MountEntry entry = registry_.Create(record);
    try {
        Fill(entry, request, progress);
    } catch (...) {
        if (entry.Record().IsLazy())
            Lazy(entry).Clear();
        TakeDown(entry);
        entry.Remove();
        throw;
    }
    log_.Info("mounted in " + stopwatch.Text());
}

LazyMount ImageStore::Lazy(const MountEntry& entry) const
{
    return Lazy(entry, entry.Record());
}

LazyMount ImageStore::Lazy(const MountEntry& entry, const MountRecord& record) const
{
    return LazyMount(record, entry.Name(), serverProgram_, entry.Lock());
}

MountEntry ImageStore::Find(const std::string& directory) const
{
    std::optional<MountEntry> entry = registry_.FindDirectory(directory);
    if (!entry) {
        struct stat status = {};
        if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
            throw ServicingError(code::directory_missing,
                                 directory + " is not an existing directory");
        throw ServicingError(code::directory_not_mounted, directory + " holds no mounted image");
    }
    return std::move(*entry);
}

void ImageStore::Discard(const std::string& directory)
{
    MountEntry entry = Find(directory);
    log_.Info("dropping the changes in " + directory);
    if (entry.Record().IsLazy()) {
        const LazyMount lazy = Lazy(entry);
        const MountPresence presence = lazy.Look();
        RequireHere(presence, directory);
        if (presence == MountPresence::Broken)
            lazy.Clear();
        else
            lazy.TakeOff();
    } else if (entry.Record().directoryIdentity != DirectoryIdentity(directory)) {
        log_.Warning(directory + " is not the directory that was mounted; it is left as it is");
        entry.Remove();
        return;
    }
    entry.SetUnmounting();
    Finish(entry);
}

void ImageStore::CommitAndUnmount(const std::string& directory, const CommitOptions& options,
                                  const Progress& progress)
{
    MountEntry entry = Find(directory);
    // An unmount that was killed after it had saved everything only has to be brought to its end.
    if (entry.Record().status != MountStatus::Unmounting) {
        PutBack(entry);
        RequireWhole(entry);
        if (entry.Record().IsLazy())
            SaveTakenOff(entry, options, progress);
        else
            Save(entry, options, MountStatus::Unmounting, progress);
    }
    Finish(entry);
}

// Nobody can change anything any more while it is saved, and what is in use is not unmounted at all.
void ImageStore::SaveTakenOff(MountEntry& entry, const CommitOptions& options,
                              const Progress& progress)
{
    const LazyMount lazy = Lazy(entry);
    lazy.TakeOff();
    try {
        Save(entry, options, MountStatus::Unmounting, progress);
    } catch (...) {
        try {
            lazy.PutOn();
        } catch (const ServicingError& error) {
            log_.Warning(std::string(error.what()) + "; the next call puts the mount back");
        }
        throw;
    }
}

bool ImageStore::Commit(const std::string& directory, const CommitOptions& options,
                        const Progress& progress)
{
    if (!registry_.FindDirectory(directory))
        return false;
    MountEntry entry = Find(directory);
    PutBack(entry);
    RequireWhole(entry);
    Save(entry, options, MountStatus::Mounted, progress);
    return true;
}

void ImageStore::RequireWhole(const MountEntry& entry) const
{
    const MountRecord& record = entry.Record();
    if (!record.IsLazy())
        RequireSameDirectory(record);
    if (record.status != MountStatus::Mounted)
        throw ServicingError(code::cannot_commit_partial,
                             "the mount in " + record.directory +
                                 " was never finished or is already being taken down");
    if (record.readOnly)
        throw ServicingError(code::mounted_read_only, record.directory + " is mounted read-only");
}

void ImageStore::TakeDown(MountEntry& entry)
{
    const MountRecord& record = entry.Record();
    if (record.IsLazy()) {
        const LazyMount lazy = Lazy(entry);
        lazy.TakeOff();
        if (!lazy.Remove())
            LeaveLayers(entry);
        RemoveOtherLayers(entry);
        return;
    }
    try {
        EmptyDirectory(record.directory);
    } catch (const ServicingError& error) {
        throw ServicingError(code::partly_unmounted, error.what());
    }
}

// A mount namespace that was made meanwhile has a copy of all mounts, and ends when it likes.
void ImageStore::LeaveLayers(const MountEntry& entry) const
{
    const MountRecord& record = entry.Record();
    const std::string what = record.directory + " is still mounted in another mount namespace";
    // Nobody would ever look for them there.
    if (entry.HasLayersIn(LayersIn::ImageFolder))
        throw ServicingError(code::partly_unmounted, what);
    log_.Warning(what + "; what is kept of it is removed by the first mount after that has ended");
}

void ImageStore::Finish(MountEntry& entry)
{
    TakeDown(entry);
    entry.Remove();
    log_.Info("unmounted " + entry.Record().directory);
}

void ImageStore::Save(MountEntry& entry, const CommitOptions& options, MountStatus then,
                      const Progress& progress)
{
    const Stopwatch stopwatch;
    MountRecord next = entry.Record();
    const FileDescriptor lock = LockImage(next.image);
    RequireUnchangedImage(next);

    const MountChanges changes = FindMountChanges(entry, serverProgram_, log_, progress);
    log_.Info("saving the changes in " + next.directory + " into " +
              ImageText(next.image, next.index) + ": " + changes.summary);
    next.status = then;
    const std::string* const state = then == MountStatus::Mounted ? &changes.state : nullptr;
    if (changes.empty && !(options.integrity && !HasIntegrityData(next))) {
        entry.Prepare(next, state);
        entry.Adopt();
        return;
    }
    next.layersAreOld = next.IsLazy();
    SaveRequest request;
    request.integrity = options.integrity;
    request.mayCompact = then == MountStatus::Unmounting;
    request.apply = changes.apply;
    SaveImage(entry, next, state, request, log_);
    log_.Info("saved in " + stopwatch.Text());
}

} // namespace kestro::servicing
