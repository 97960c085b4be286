// image_store.h - mounting image files into directories, saving and dropping their changes. A mounted
// image is shown by a process of its own, with an overlay for its changes, or it is an extracted tree; and
// a record says which, and what it was.
#pragma once

#include "lazy_mount.h"
#include "mount_record.h"
#include "platform_log.h"
#include "wim_file.h"

#include <string>
#include <vector>

namespace kestro::servicing {

// How a mounted image comes into its directory.
enum class MountWay {
    Any,       // lazily where the system lets it, else extracted
    Lazy,      // or not at all
    Extracted, // whoever reads much of it is better off
};

struct MountRequest {
    std::string image;
    std::string directory;
    unsigned index = 1; // used when there is no name
    std::string name;
    bool readOnly = false;
    bool checkIntegrity = false;
    MountWay way = MountWay::Any;
};

enum class MountState {
    Ok,
    NeedsRemount, // a restart took it; the next call puts it back
    Invalid,      // unfinished, or its image file or its directory is not what was mounted
};

struct MountInfo {
    std::string image;
    unsigned index = 1;
    std::string directory;
    bool readOnly = false;
    bool lazy = false;
    // Its record cannot be read: of image, index and directory at most the last is known.
    bool damaged = false;
    MountState state = MountState::Ok;
    std::string reason; // why it is not Ok
};

struct CommitOptions {
    bool integrity = false; // write integrity data
};

// Paths are UTF-8 and absolute. Everything throws ServicingError and then has changed nothing but what
// its description says.
class ImageStore {
  public:
    // The folder holds the records of all mounts. Without the program that serves images everything is
    // extracted.
    ImageStore(std::string folder, PlatformLog log, std::string serverProgram = {})
        : registry_(std::move(folder), log), log_(log), serverProgram_(std::move(serverProgram))
    {
    }

    void Mount(const MountRequest& request, const Progress& progress = {});
    void Discard(const std::string& directory);
    void CommitAndUnmount(const std::string& directory, const CommitOptions& options,
                          const Progress& progress = {});
    // Saves and stays mounted. A directory that is no mount has nothing to save: false.
    bool Commit(const std::string& directory, const CommitOptions& options,
                const Progress& progress = {});
    bool IsMounted(const std::string& directory) const;
    // All mounts as they are; nothing is put back.
    std::vector<MountInfo> Mounts() const;
    // Puts a mount back that a restart took, with its changes. A directory that is no mount, or a mount
    // that is whole, is left alone.
    void PutBack(const std::string& directory);
    // Drops the mounts that are invalid, and the records that cannot be read.
    void ClearAwayInvalid();

  private:
    MountEntry Find(const std::string& directory) const;
    LazyMount Lazy(const MountEntry& entry) const;
    LazyMount Lazy(const MountEntry& entry, const MountRecord& record) const;
    void Fill(MountEntry& entry, const MountRequest& request, const Progress& progress);
    void MountLazily(MountEntry& entry);
    MountInfo Describe(const MountEntry& entry) const;
    void PutBack(MountEntry& entry);
    void Forget(const std::string& directory);
    void RenewLayers(MountEntry& entry);
    void RemoveOtherLayers(const MountEntry& entry) const;
    void SaveTakenOff(MountEntry& entry, const CommitOptions& options, const Progress& progress);
    void TakeDown(MountEntry& entry);
    void LeaveLayers(const MountEntry& entry) const;
    void RequireWhole(const MountEntry& entry) const;
    void Save(MountEntry& entry, const CommitOptions& options, MountStatus then,
              const Progress& progress);
    void Finish(MountEntry& entry);

    MountRegistry registry_;
    PlatformLog log_;
    std::string serverProgram_;
};

} // namespace kestro::servicing
