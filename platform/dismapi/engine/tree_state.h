// tree_state.h - the state of a directory tree at one moment, and what has changed since.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kestro::servicing {

enum class FileType : char { Directory = 'd', File = 'f', Link = 'l', Other = 'o' };

struct FileState {
    FileType type = FileType::Other;
    long long size = 0, modified = 0, changed = 0; // nanoseconds; of a directory `modified` alone
    unsigned long long inode = 0;
    long long born = 0; // 0 where the file system does not tell
    bool operator==(const FileState&) const = default;
};

// A directory comes right before everything below it.
struct PathOrder {
    bool operator()(const std::string& left, const std::string& right) const;
};

// Paths are relative to the tree's root, with a leading slash; the root itself is not listed.
using TreeState = std::map<std::string, FileState, PathOrder>;
std::string ParentOf(const std::string& path);
std::string NameOf(const std::string& path); // with its slash

// Whether a path of a tree, as above, leads nowhere else. The root is one, too: it is empty.
bool IsPlainPath(const std::string& path);

FileState StateOf(const struct statx& status);
// Calls for everything below the root, a directory before what is in it and with its descriptor, all
// else with -1. What goes away meanwhile is left out.
using TreeVisit =
    std::function<void(const std::string& path, const struct statx& status, int directory)>;
void WalkTree(const std::string& root, const TreeVisit& visit);

TreeState ReadTreeState(const std::string& root);
std::string ToText(const TreeState& state);
TreeState TreeStateFromText(const std::string& text);

struct TreeChanges {
    std::vector<std::string> removed; // a directory stands for everything below it
    std::vector<std::string> added;   // new, or with new content; likewise
    // Size and time of last write are the same, yet something happened to the file: only its content
    // can tell.
    std::vector<std::string> touched;
    bool Empty() const { return removed.empty() && added.empty() && touched.empty(); }
};

TreeChanges Compare(const TreeState& before, const TreeState& now);

} // namespace kestro::servicing
