// replay_plan.h - what has to be done to a saved image so that it becomes what its mount shows.
//
// Places: "saved" paths are those of the image as it was last saved, all others are those of the mount
// as it is now. What is known again under another name is moved, and keeps all that the image knows of it;
// everything else goes by its path.
#pragma once

#include "upper_state.h"
#include "wim_file.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

// What the saved image knows of a path.
using SavedFiles = std::function<std::optional<SavedFile>(const std::string& savedPath)>;

struct ReplayPlan {
    struct Directory {
        enum class How {
            Kept,  // as it was; made if it is not there
            Made,  // a new one, or the old one emptied
            Moved, // from another place of the saved image
        };
        std::string path;
        How how = How::Kept;
        std::string from; // its saved path, if it is not a new one
    };
    struct Name {
        std::string path;
        std::string from;             // saved path of one that moved
        unsigned long long group = 0; // equal for those that the saved image has on one file, or 0
        std::string savedAs;          // where the saved image would have it
    };
    struct File {
        FileType type = FileType::File;
        std::vector<Name> names; // all of them hard links of one file
        long long size = 0;
        bool write = true; // false: the first name's content is right already
    };

    std::vector<Directory> directories; // a directory before what is in it
    std::vector<std::string> left;      // directories out of which something moved
    std::vector<std::string> removed;
    std::vector<File> files;
    bool Empty() const { return directories.empty() && removed.empty() && files.empty(); }
};

// `former` is the state of the upper directory when the image was saved last, empty if never. The saved
// image is asked only where the upper directory itself cannot tell.
ReplayPlan PlanReplay(const UpperState& former, const UpperState& now, const std::string& upper,
                      const SavedFiles& saved);

} // namespace kestro::servicing
