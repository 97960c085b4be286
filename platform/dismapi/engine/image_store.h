// image_store.h - mounting image files into directories, saving and dropping their changes. Built on
// plain directories: a mounted image is an extracted tree and a record of what it was.
#pragma once

#include "mount_record.h"
#include "platform_log.h"
#include "wim_file.h"

#include <string>

namespace kestro::servicing {

struct MountRequest {
    std::string image;
    std::string directory;
    unsigned index = 1; // used when there is no name
    std::string name;
    bool readOnly = false;
    bool checkIntegrity = false;
};

struct CommitOptions {
    bool integrity = false; // write integrity data
};

// Paths are UTF-8 and absolute. Everything throws ServicingError and then has changed nothing but what
// its description says.
class ImageStore {
  public:
    // The folder holds the records of all mounts.
    ImageStore(std::string folder, PlatformLog log)
        : registry_(std::move(folder)), log_(std::move(log))
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

  private:
    MountEntry Find(const std::string& directory) const;
    void RequireWhole(const MountEntry& entry) const;
    void Save(MountEntry& entry, const CommitOptions& options, MountStatus then,
              const Progress& progress);
    TreeChanges FindChanges(const MountEntry& entry, const TreeState& now) const;
    void Finish(MountEntry& entry);

    MountRegistry registry_;
    PlatformLog log_;
};

} // namespace kestro::servicing
