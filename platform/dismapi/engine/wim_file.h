// wim_file.h - image files, through libwim.
#pragma once

#include "tree_state.h"

#include <wimlib.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

// Told how far a long operation has come; current runs up to total. False ends the operation, which then
// throws.
using Progress = std::function<bool(unsigned current, unsigned total)>;

// A file of an image, and where its content lies in the image file. Files with the same content, hard
// links among them, have the same position; links and those without content have 0.
struct StoredFile {
    std::string path;
    unsigned long long position = 0, size = 0;
};

// What an image knows of a path.
struct SavedFile {
    long long modified = 0; // nanoseconds
    std::string hash;       // SHA-1 of the content; empty when there is none
};

struct WriteOptions {
    bool integrity = false; // write integrity data
    bool rebuild = false;   // leave out what nothing refers to any more
    bool standIn = false;   // the file holds no content, and is there to be appended to
};

// An open image file. Every function throws ServicingError.
class WimFile {
  public:
    enum class Access { Read, Write };
    WimFile(const std::string& path, Access access, bool checkIntegrity, Progress progress);
    WimFile(const WimFile&) = delete;
    WimFile& operator=(const WimFile&) = delete;

    // Images are counted from 1.
    unsigned FindImage(const std::string& name) const;
    unsigned ImageCount() const;
    // The image that the file is booted from; 0 without one.
    unsigned BootIndex() const;
    // A value of the image's XML data ("WINDOWS/ARCH"); empty without one.
    std::string Property(unsigned index, const std::string& name) const;

    // All but directories and what has a name that no path can hold.
    std::vector<StoredFile> Files(unsigned index) const;
    void Extract(unsigned index, const std::string& directory) const;
    // Nothing when the image has no such path.
    std::optional<SavedFile> Find(unsigned index, const std::string& path) const;
    // Makes the image's tree what the directory's is; only what has changed is read. What has not keeps
    // everything that the image knows of it.
    void Apply(unsigned index, const std::string& directory, const TreeChanges& changes);
    // Writes what was changed into the file.
    void Save(const WriteOptions& options);

  private:
    struct Free {
        void operator()(WIMStruct* wim) const { wimlib_free(wim); }
    };
    static wimlib_progress_status OnProgress(wimlib_progress_msg message,
                                             wimlib_progress_info* info, void* context);
    wimlib_wim_info Info() const;

    std::string path_;
    Progress progress_;
    unsigned lastPercent_ = 0;
    std::unique_ptr<WIMStruct, Free> wim_;
};

// Saves what was changed in an image that a process shows for writing. The process then ends.
void CommitShownImage(const std::string& directory, const WriteOptions& options);

// The SHA-1 of bytes, and of a file on disk.
std::string HashOf(const std::string& bytes);
std::string HashOfFile(const std::string& path);

} // namespace kestro::servicing
