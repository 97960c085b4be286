// tree_state.cpp - the state of a directory tree at one moment, and what has changed since.
#include "tree_state.h"

#include "file_system.h"
#include "servicing_error.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace kestro::servicing {
namespace {

void WalkDirectory(FileDescriptor opened, const std::string& path, const TreeVisit& visit)
{
    const int fd = opened.Get();
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(fdopendir(fd), closedir);
    if (!directory)
        throw SystemError("cannot read the directory " + path);
    opened.Release();
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(directory.get());
        if (entry == nullptr) {
            if (errno != 0)
                throw SystemError("cannot read the directory " + path);
            return;
        }
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const std::string child = path + "/" + name;
        struct statx status = {};
        if (statx(fd, name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME,
                  &status) != 0) {
            if (errno == ENOENT)
                continue;
            throw SystemError("cannot look at " + child);
        }
        if (!S_ISDIR(status.stx_mode)) {
            visit(child, status, -1);
            continue;
        }
        FileDescriptor below(
            openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!below && errno == ENOENT)
            continue;
        if (!below)
            throw SystemError("cannot read the directory " + child);
        visit(child, status, below.Get());
        WalkDirectory(std::move(below), child, visit);
    }
}

// Whether one of the roots is the path or stands above it. The roots are in the order of a TreeState,
// so only the last one can be.
bool Covered(const std::vector<std::string>& roots, const std::string& path)
{
    if (roots.empty())
        return false;
    const std::string& root = roots.back();
    return path == root || (path.size() > root.size() && path[root.size()] == '/' &&
                            path.compare(0, root.size(), root) == 0);
}

} // namespace

bool PathOrder::operator()(const std::string& left, const std::string& right) const
{
    const auto rank = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c); };
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                        [&](char a, char b) { return rank(a) < rank(b); });
}

std::string ParentOf(const std::string& path)
{
    return path.substr(0, path.rfind('/'));
}

std::string NameOf(const std::string& path)
{
    return path.substr(path.rfind('/'));
}

bool IsPlainPath(const std::string& path)
{
    const std::string closed = path + "/";
    return closed.starts_with('/') && closed.find("/../") == std::string::npos &&
           closed.find("/./") == std::string::npos && closed.find("//") == std::string::npos;
}

FileState StateOf(const struct statx& status)
{
    FileState state;
    state.type = S_ISDIR(status.stx_mode)   ? FileType::Directory
                 : S_ISREG(status.stx_mode) ? FileType::File
                 : S_ISLNK(status.stx_mode) ? FileType::Link
                                            : FileType::Other;
    const auto time = [](const statx_timestamp& given) {
        return Nanoseconds({given.tv_sec, static_cast<long>(given.tv_nsec)});
    };
    state.inode = status.stx_ino;
    state.born = (status.stx_mask & STATX_BTIME) != 0 ? time(status.stx_btime) : 0;
    state.modified = time(status.stx_mtime);
    if (state.type == FileType::Directory)
        return state; // what is in it is listed; the rest of it changes with every entry
    state.size = static_cast<long long>(status.stx_size);
    state.changed = time(status.stx_ctime);
    return state;
}

void WalkTree(const std::string& root, const TreeVisit& visit)
{
    FileDescriptor opened(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened)
        throw SystemError("cannot read the directory " + root);
    WalkDirectory(std::move(opened), "", visit);
}

TreeState ReadTreeState(const std::string& root)
{
    TreeState state;
    WalkTree(root, [&](const std::string& path, const struct statx& status, int) {
        state.emplace(path, StateOf(status));
    });
    return state;
}

std::string ToText(const TreeState& state)
{
    // A name holds any byte but zero, which therefore ends an entry.
    std::string text;
    char numbers[160];
    for (const auto& [path, file] : state) {
        const int length = std::snprintf(numbers, sizeof numbers, "%c %lld %lld %lld %llu %lld ",
                                         static_cast<char>(file.type), file.size, file.modified,
                                         file.changed, file.inode, file.born);
        text.append(numbers, static_cast<std::size_t>(length));
        text.append(path).push_back('\0');
    }
    return text;
}

TreeState TreeStateFromText(const std::string& text)
{
    const ServicingError damaged(code::not_a_valid_mount,
                                 "the record of the mounted files is damaged");
    TreeState state;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\0', start);
        FileState file;
        char type = 0;
        int length = 0;
        if (end == std::string::npos ||
            std::sscanf(text.c_str() + start, "%c %lld %lld %lld %llu %lld %n", &type, &file.size,
                        &file.modified, &file.changed, &file.inode, &file.born, &length) != 6 ||
            length == 0)
            throw damaged;
        file.type = static_cast<FileType>(type);
        const std::size_t name = start + static_cast<std::size_t>(length);
        const std::string path = text.substr(name, end - name);
        if (path.empty() || !IsPlainPath(path))
            throw damaged;
        state.emplace(path, file);
        start = end + 1;
    }
    return state;
}

TreeChanges Compare(const TreeState& before, const TreeState& now)
{
    TreeChanges changes;
    for (const auto& [path, old] : before) {
        const auto found = now.find(path);
        const bool gone = found == now.end() || found->second.type != old.type;
        if (gone && !Covered(changes.removed, path))
            changes.removed.push_back(path);
    }
    for (const auto& [path, file] : now) {
        if (Covered(changes.added, path))
            continue;
        const auto found = before.find(path);
        if (found == before.end() || found->second.type != file.type)
            changes.added.push_back(path);
        else if (file.type == FileType::Directory)
            continue;
        else if (found->second.size != file.size || found->second.modified != file.modified)
            changes.added.push_back(path);
        else if (found->second != file)
            changes.touched.push_back(path);
    }
    return changes;
}

} // namespace kestro::servicing
