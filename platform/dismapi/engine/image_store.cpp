// image_store.cpp - mounting image files into directories, saving and dropping their changes.
#include "image_store.h"

#include "image_extraction.h"
#include "image_save.h"
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

// What stays the same for as long as the directory is the same one.
FileIdentity DirectoryIdentity(const std::string& directory)
{
    const FileIdentity identity = IdentityOf(directory);
    return {identity.device, identity.inode, 0, 0};
}

std::string ImageText(const std::string& image, unsigned index)
{
    return "image " + std::to_string(index) + " of " + image;
}

void RequireMountDirectory(const std::string& directory)
{
    struct stat status = {};
    if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        throw ServicingError(code::directory_missing, directory + " is not an existing directory");
    if (!IsEmptyDirectory(directory))
        throw ServicingError(code::directory_not_empty, directory + " is not empty");
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
    RequireMountDirectory(request.directory);

    MountRecord record;
    record.image = request.image;
    record.imageIdentity = ImageIdentityOf(request.image);
    const WimFile wim(request.image, WimFile::Access::Read, request.checkIntegrity, {});
    record.index = request.name.empty() ? request.index : wim.FindImage(request.name);
    wim.RequireImage(record.index);
    wim.RequireMountable();
    if (!request.readOnly && wim.IsMarkedReadOnly())
        throw ServicingError(code::image_file_read_only, request.image + " is marked read-only");
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
        ExtractImage(entry.Record(), progress);
        // Only what is on disk for good may count as what the image holds: files that a crash took
        // away must not look like files that the user changed.
        SyncFileSystem(request.directory);
        entry.SetMounted(ReadTreeState(request.directory));
    } catch (...) {
        EmptyDirectory(request.directory);
        entry.Remove();
        throw;
    }
    log_.Info("mounted in " + stopwatch.Text());
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
    if (entry.Record().directoryIdentity != DirectoryIdentity(directory)) {
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
        RequireWhole(entry);
        Save(entry, options, MountStatus::Unmounting, progress);
    }
    Finish(entry);
}

bool ImageStore::Commit(const std::string& directory, const CommitOptions& options,
                        const Progress& progress)
{
    if (!registry_.FindDirectory(directory))
        return false;
    MountEntry entry = Find(directory);
    RequireWhole(entry);
    Save(entry, options, MountStatus::Mounted, progress);
    return true;
}

void ImageStore::RequireWhole(const MountEntry& entry) const
{
    const MountRecord& record = entry.Record();
    if (record.directoryIdentity != DirectoryIdentity(record.directory))
        throw ServicingError(code::not_a_valid_mount,
                             record.directory + " is not the directory that was mounted");
    if (record.status != MountStatus::Mounted)
        throw ServicingError(code::cannot_commit_partial,
                             "the mount in " + record.directory +
                                 " was never finished or is already being taken down");
    if (record.readOnly)
        throw ServicingError(code::mounted_read_only, record.directory + " is mounted read-only");
}

void ImageStore::Finish(MountEntry& entry)
{
    const std::string directory = entry.Record().directory;
    try {
        EmptyDirectory(directory);
    } catch (const ServicingError& error) {
        throw ServicingError(code::partly_unmounted, error.what());
    }
    entry.Remove();
    log_.Info("unmounted " + directory);
}

TreeChanges ImageStore::FindChanges(const MountEntry& entry, const TreeState& now) const
{
    const MountRecord& record = entry.Record();
    TreeChanges changes = Compare(entry.Tree(), now);
    if (changes.touched.empty())
        return changes;

    // A file that was only touched keeps what the image knows of it, unless its content differs.
    const WimFile wim(record.image, WimFile::Access::Read, false, {});
    for (const std::string& path : changes.touched) {
        const FileState& file = now.at(path);
        const bool same = file.type == FileType::File &&
                          (file.size == 0 || wim.ContentHash(record.index, path) ==
                                                 HashOfFile(record.directory + path));
        if (!same)
            changes.added.push_back(path);
    }
    changes.touched.clear();
    return changes;
}

void ImageStore::Save(MountEntry& entry, const CommitOptions& options, MountStatus then,
                      const Progress& progress)
{
    const Stopwatch stopwatch;
    MountRecord next = entry.Record();
    const FileDescriptor lock = LockImage(next.image);
    RequireUnchangedImage(next);

    const TreeState now = ReadTreeState(next.directory);
    const TreeChanges changes = FindChanges(entry, now);
    log_.Info("saving the changes in " + next.directory + " into " +
              ImageText(next.image, next.index) + ": " + std::to_string(changes.added.size()) +
              " new or changed, " + std::to_string(changes.removed.size()) + " removed");
    next.status = then;
    const TreeState* const tree = then == MountStatus::Mounted ? &now : nullptr;
    if (changes.Empty() && !(options.integrity && !HasIntegrityData(next))) {
        entry.Prepare(next, tree);
        entry.Adopt();
        return;
    }
    SaveRequest request;
    request.integrity = options.integrity;
    request.mayCompact = then == MountStatus::Unmounting;
    request.apply = [&](const std::string& imageFile, const WriteOptions& how) {
        WimFile wim(imageFile, WimFile::Access::Write, false, progress);
        wim.Apply(next.index, next.directory, changes);
        wim.Save(how);
    };
    SaveImage(entry, next, tree, request, log_);
    log_.Info("saved in " + stopwatch.Text());
}

} // namespace kestro::servicing
