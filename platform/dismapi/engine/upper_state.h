// upper_state.h - the state of an overlay's upper directory: what a lazily mounted image's user has
// changed. Of the size of the change, not of the image.
#pragma once

#include "tree_state.h"

#include <map>
#include <string>

namespace kestro::servicing {

struct UpperEntry {
    FileState file;
    bool whiteout = false; // the image's entry of this name is deleted
    bool opaque = false;   // nothing of the image shows through this directory
    std::string redirect;  // of a moved directory: where the overlay says that it was
    std::string place; // of a file or a link that is one of the image as mounted: its path there
    bool operator==(const UpperEntry&) const = default;
};

// Paths as in a TreeState.
using UpperState = std::map<std::string, UpperEntry, PathOrder>;

// Throws busy when others do not stop moving things about.
UpperState ReadUpperState(const std::string& upper);
// For an upper directory that is laid over the image again. The overlay notes of a file from which one of the
// image's it was made, by a number that the serving process gave; the next process gives it to another.
void ForgetOrigins(const std::string& upper);
// Of a directory that no image shows through: an extracted one.
UpperState ToUpperState(const TreeState& tree);

std::string ToText(const UpperState& state);
UpperState UpperStateFromText(const std::string& text);

// Throws, naming the entry, when something new could not be in a Windows image: a name that Windows
// does not allow, a pipe, a device, a socket.
void RequireWindowsEntries(const UpperState& former, const UpperState& now);

} // namespace kestro::servicing
