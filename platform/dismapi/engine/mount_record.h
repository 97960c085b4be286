// mount_record.h - what is known of each mounted image, kept on disk so that another process can
// unmount it, also after a restart or a crash.
#pragma once

#include "file_system.h"
#include "platform_log.h"
#include "wim_header.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

enum class MountStatus {
    Mounting,   // the directory is being filled
    Mounted,    // the directory is the user's
    Unmounting, // everything is saved or dropped; the directory is being emptied
};

struct MountRecord {
    std::string image;
    ImageIdentity imageIdentity; // as mounted or last committed
    unsigned index = 1;
    std::string directory;
    FileIdentity directoryIdentity; // device and inode count
    bool readOnly = false;
    MountStatus status = MountStatus::Mounting;
    // Of a record that is prepared: what the image file's header was when the file was appended to; it
    // ended there. Without bytes when another file takes the old one's place.
    WimHeader appendedTo;
    // Of a lazy mount: the folder with its layers. Empty when the image is extracted.
    std::string layers;
    // Of a lazy mount: the image file was saved since its layers were made. What is in them is about the
    // image as it was before and must not be laid over the new one.
    bool layersAreOld = false;
    bool IsLazy() const { return !layers.empty(); }
};

// A mount whose record cannot be read.
struct DamagedMount {
    std::string directory; // empty when nothing tells
    std::string reason;
};

// Throws when the image file is no longer what it was when it was mounted or last committed.
void RequireUnchangedImage(const MountRecord& record);
// Keeps other saves out of the image file, wimlib's own among them. Throws busy when there is another one.
FileDescriptor LockImage(const std::string& image);

// Where the layers of a lazy mount lie: in the record's folder, or beside the image file.
enum class LayersIn { Record, ImageFolder };

// A record's place on disk, locked for as long as this lives: of several processes that work on one
// mount, all but the first are told that it is busy.
class MountEntry {
  public:
    MountEntry(std::string folder, FileDescriptor lock, MountRecord record)
        : folder_(std::move(folder)), lock_(std::move(lock)), record_(std::move(record))
    {
    }

    const MountRecord& Record() const { return record_; }
    // The descriptor that keeps the record locked.
    int Lock() const { return lock_.Get(); }
    // What was in the mount when it was made or last saved, as text: of an extracted one the whole tree's
    // TreeState, of a lazy one that was saved the UpperState of its upper directory.
    std::string State() const;
    // The name of the mount in the system's lists, no other mount's.
    std::string Name() const;
    // A folder for the layers of a lazy mount, which does not exist yet.
    std::string NewLayers(LayersIn place) const;
    bool HasLayersIn(LayersIn place) const;
    // Such folders that are not the record's: a killed process left them.
    std::vector<std::string> OtherLayers(LayersIn place) const;
    // Where a commit builds the new image file: beside the old one, under a name of this mount's own.
    std::string UnfinishedImage() const;
    // Where it makes the small file that stands for an image file that is appended to.
    std::string StandIn() const { return folder_ + "/stand-in.wim"; }

    // Written down before anything is in them.
    void SetLayers(const std::string& layers);
    // Before the first file comes into the directory.
    void SetExtracting();
    // The record and the state that SetMounted puts into force; it may still be taken for something else.
    void PrepareMounted(const std::string& state) const;
    void SetMounted();
    // The changes are dropped: from now on nothing can be saved.
    void SetUnmounting();
    // A new image file comes into force together with the new record: Prepare writes down what will
    // hold once the image file is the given one, Adopt makes it hold.
    void Prepare(const MountRecord& next, const std::string* state);
    void Adopt();
    void Remove();

    // Brings a record that a killed process left behind into order. Throws busy when another process
    // saves into the image file.
    void Recover();
    // The same for the process that has locked the image file, after a save that failed.
    void RecoverLocked();
    // Takes away what a save wrote beside the image file and the stand-in.
    void RemoveUnfinished() const;

  private:
    void Write(const MountRecord& record, Sync sync = Sync::Everything);
    void SetStatus(MountStatus status);
    std::optional<MountRecord> Prepared() const;
    void DropPrepared() const;

    std::string folder_;
    FileDescriptor lock_;
    MountRecord record_;
};

// A process that was killed while it started another one leaves its lock to that one for a moment.
enum class WhenBusy { WaitAMoment, Throw };

class MountRegistry {
  public:
    explicit MountRegistry(std::string folder, PlatformLog log = {})
        : folder_(std::move(folder)), log_(std::move(log))
    {
    }

    // The directory's record, if there is one. Throws busy when another process works on it, and
    // mount_damaged when it cannot be read.
    std::optional<MountEntry> FindDirectory(const std::string& directory,
                                            WhenBusy whenBusy = WhenBusy::WaitAMoment) const;
    // The same without locking it and without bringing it into order.
    std::optional<MountRecord> Peek(const std::string& directory) const;
    std::vector<MountRecord> All() const;
    std::vector<DamagedMount> Damaged() const;
    // A record of the same image of the same file.
    std::optional<MountRecord> FindImage(const std::string& image, unsigned index) const;
    MountEntry Create(const MountRecord& record) const;
    // Held while a mount is decided on, so that two do not take the same directory. Clears away what
    // killed processes left of mounts that never began or are over.
    FileDescriptor Lock() const;
    // Removes the records that are damaged, with what belongs to them.
    void RemoveDamaged() const;

  private:
    // Those that hold a record.
    std::vector<std::string> Folders() const;
    void RemoveIfDamaged(const std::string& folder) const;
    // Calls with each record and its folder until the call says true. A record that is damaged is left
    // out; when it can be seen to be the given directory's, it throws mount_damaged.
    using Visit = std::function<bool(const std::string& folder, MountRecord record)>;
    void ForEach(const std::string& directory, const Visit& visit) const;

    std::string folder_;
    PlatformLog log_;
};

} // namespace kestro::servicing
