// saved_places.h - where the saved image has what a mount shows.
//
// "Saved" paths are those of the image as it was last saved, "now" those of the mount. An entry of the saved
// image is known again, whatever its name is now, by what the overlay and the serving process have noted
// with it, or by the inode that it had at the last save.
#pragma once

#include "upper_state.h"

#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kestro::servicing {

class SavedPlaces {
  public:
    SavedPlaces(const UpperState& former, const UpperState& now);

    // The place of one of the mount's directories; nothing when it is a new one. Asked for in the order of
    // the state.
    std::optional<std::string> AddDirectory(const std::string& path);

    // What follows is asked once all directories are known.

    // Where the path would be if it was never renamed itself; nothing below a directory that is new.
    std::optional<std::string> SavedPathOf(const std::string& path) const;
    // Where a directory of the saved image is now, and what was never renamed in it; nothing when it is gone.
    std::optional<std::string> NowPathOf(const std::string& savedPath) const;
    const UpperEntry* FormerOf(const std::string& path) const;
    const UpperEntry* FormerAt(const std::string& savedPath) const;
    // The saved names of a file or a link under which the mount no longer has it.
    std::vector<std::string> LeftNamesOf(const UpperEntry& entry) const;
    // Whether the file or link of that path is the one that the saved image has there.
    bool IsInPlace(const std::string& path, const UpperEntry& entry) const;

  private:
    using Places = std::unordered_map<std::string, std::string>;
    using Identity = std::pair<unsigned long long, long long>;

    static Places SourcesOf(const UpperState& state);
    static Places Inverse(const Places& places);
    static Identity IdentityOf(const FileState& file) { return {file.inode, file.born}; }
    const std::vector<std::string>* FormerNamesOf(const FileState& file) const;
    std::optional<std::string> SavedPlaceOf(const UpperEntry& entry) const;
    std::string SavedPlaceOf(const std::string& source) const;
    bool IsShownThrough(const std::string& savedPath) const;

    const UpperState& former_;
    const UpperState& now_;
    const Places formerSources_, sources_, formerPlaces_;
    std::map<Identity, std::vector<std::string>> formerNames_;
    std::set<Identity> there_;
    Places savedPaths_{{"", ""}}, nowPaths_{{"", ""}}; // of directories that the saved image has
};

} // namespace kestro::servicing
