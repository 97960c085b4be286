// upper_replay.cpp - does to a saved image what a plan says.
#include "upper_replay.h"

#include "file_content.h"
#include "file_system.h"
#include "servicing_error.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

namespace kestro::servicing {
namespace fs = std::filesystem;

namespace {

using Directory = ReplayPlan::Directory;
using File = ReplayPlan::File;
using Name = ReplayPlan::Name;

class Replayer {
  public:
    Replayer(const ReplayPlan& plan, const ReplayPlaces& places, const Progress& progress)
        : plan_(plan), places_(places), progress_(progress)
    {
        for (const File& file : plan.files)
            totalBytes_ += file.write ? file.size : 0;
    }

    void Run();

  private:
    struct Move {
        std::string from, to;
        bool isDirectory;
    };
    std::vector<Move> Moves() const;
    void MoveAway();
    void MakeHolding();
    void PutBackMoved(const File& file);
    void PutDirectory(const Directory& directory);
    void PutFile(const File& file);
    bool PutContent(const Name& name, bool inPlace);
    void PutLink(const Name& name);
    void PutSpecial(const Name& name);
    void SetTimes();
    void Advance(long long bytes);

    // Nothing when there is none.
    static std::optional<struct stat> Look(const std::string& path);
    std::optional<struct stat> InUpper(const Name& name) { return Look(places_.upper + name.path); }
    bool StandsAlone(const File& file, const Name& name) const;
    void Remove(const std::string& path);
    std::string At(const std::string& path) const { return places_.target + path; }
    void Touch(const std::string& path) { touched_.insert(path.substr(0, path.rfind('/'))); }

    const ReplayPlan& plan_;
    const ReplayPlaces& places_;
    const Progress& progress_;
    std::string holding_;                     // where what moves waits for its new place
    std::map<std::string, std::string> held_; // in it, by their new places
    std::set<std::string> touched_;           // directories whose entries were changed
    std::vector<std::pair<std::string, struct stat>> written_;
    long long totalBytes_ = 0, writtenBytes_ = 0;
    unsigned lastPercent_ = 0;
};

std::optional<struct stat> Replayer::Look(const std::string& path)
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0)
        return status;
    if (errno != ENOENT && errno != ENOTDIR)
        throw SystemError("cannot look at " + path);
    return std::nullopt;
}

void Replayer::Run()
{
    const auto root = Look(places_.target);
    MoveAway();
    for (const Directory& directory : plan_.directories)
        PutDirectory(directory);
    for (const std::string& path : plan_.removed)
        Remove(path);
    for (const File& file : plan_.files)
        PutBackMoved(file);
    if (!holding_.empty() && rmdir(holding_.c_str()) != 0)
        throw SystemError("cannot remove " + holding_);
    for (const File& file : plan_.files)
        PutFile(file);
    SetTimes();
    if (root && !holding_.empty() && !touched_.contains(""))
        CopyTimes(*root, places_.target);
}

std::vector<Replayer::Move> Replayer::Moves() const
{
    std::vector<Move> moves;
    for (const Directory& directory : plan_.directories)
        if (directory.how == Directory::How::Moved)
            moves.push_back({directory.from, directory.path, true});
    for (const File& file : plan_.files)
        for (const Name& name : file.names)
            if (!name.from.empty())
                moves.push_back({name.from, name.path, false});
    // What is in a directory that moves, too, goes first.
    const auto depth = [](const Move& move) {
        return std::count(move.from.begin(), move.from.end(), '/');
    };
    std::stable_sort(moves.begin(), moves.end(), [&](const Move& left, const Move& right) {
        return depth(left) > depth(right);
    });
    return moves;
}

void Replayer::MakeHolding()
{
    std::string name = At("/kestro-moving");
    while (Look(name))
        name += '_';
    if (mkdir(name.c_str(), 0700) != 0)
        throw SystemError("cannot create " + name);
    holding_ = name;
}

// Before anything is made or removed: a directory may move out of one that goes, into one that comes, or
// into the place of one that itself moves.
void Replayer::MoveAway()
{
    const std::vector<Move> moves = Moves();
    if (moves.empty())
        return;
    MakeHolding();
    for (const Move& move : moves) {
        const std::string held = holding_ + "/" + std::to_string(held_.size());
        if (rename(At(move.from).c_str(), held.c_str()) == 0) {
            held_[move.to] = held;
            continue;
        }
        if (errno == ENOENT && !move.isDirectory)
            continue; // it moved while a save looked for it; now it is written
        if (errno == ENOENT)
            throw ServicingError(code::not_a_valid_mount, "the image has no directory " +
                                                              move.from + ", which was moved to " +
                                                              move.to);
        throw SystemError("cannot move " + At(move.from));
    }
}

void Replayer::PutBackMoved(const File& file)
{
    for (const Name& name : file.names) {
        const auto held = held_.find(name.path);
        if (held == held_.end())
            continue;
        Remove(name.path);
        if (rename(held->second.c_str(), At(name.path).c_str()) != 0)
            throw SystemError("cannot move a file to " + At(name.path));
        Touch(name.path);
    }
}

void Replayer::PutDirectory(const Directory& directory)
{
    const std::string path = At(directory.path);
    const auto existing = Look(path);
    if (directory.how == Directory::How::Moved) {
        Remove(directory.path);
        if (rename(held_.at(directory.path).c_str(), path.c_str()) != 0)
            throw SystemError("cannot move a directory to " + path);
        Touch(directory.path);
    } else if (existing && S_ISDIR(existing->st_mode)) {
        if (directory.how == Directory::How::Made)
            EmptyDirectory(path);
    } else {
        Remove(directory.path);
        if (mkdir(path.c_str(), 0777) != 0)
            throw SystemError("cannot create " + path);
        Touch(directory.path);
    }
    const std::string from = places_.upper + directory.path;
    const auto status = Look(from);
    if (status && places_.kind == ReplayTarget::Mount)
        CopyOwnership(from, *status, path);
}

void Replayer::Remove(const std::string& path)
{
    const auto existing = Look(At(path));
    if (!existing)
        return;
    if (S_ISDIR(existing->st_mode))
        EmptyDirectory(At(path));
    std::error_code error;
    if (!fs::remove(At(path), error) && error)
        throw ServicingError(CodeOfErrno(error.value()),
                             "cannot remove " + At(path) + ": " + error.message());
    Touch(path);
}

// Whether writing to the name changes no file that has other names than the given ones.
bool Replayer::StandsAlone(const File& file, const Name& name) const
{
    const auto existing = Look(At(name.path));
    if (!existing || !S_ISREG(existing->st_mode))
        return false;
    const auto together = std::count_if(file.names.begin(), file.names.end(), [&](const Name& n) {
        return n.group != 0 && n.group == name.group;
    });
    return places_.kind == ReplayTarget::Mount ||
           existing->st_nlink == static_cast<nlink_t>(std::max<long>(together, 1));
}

void Replayer::PutFile(const File& file)
{
    if (file.type == FileType::Link)
        return PutLink(file.names.front());
    if (file.type == FileType::Other)
        return PutSpecial(file.names.front());
    const Name* first = &file.names.front();
    const bool isThere = first->from.empty() || held_.contains(first->path);
    bool inPlace = true;
    if (file.write || !isThere) {
        const auto place = std::find_if(file.names.begin(), file.names.end(),
                                        [&](const Name& name) { return StandsAlone(file, name); });
        inPlace = place != file.names.end();
        first = inPlace ? &*place : first;
        if (!PutContent(*first, inPlace))
            return;
    }
    for (const Name& name : file.names) {
        const bool linked = places_.kind == ReplayTarget::Image && inPlace && first->group != 0 &&
                            name.group == first->group;
        if (&name == first || linked)
            continue;
        Remove(name.path);
        if (link(At(first->path).c_str(), At(name.path).c_str()) != 0)
            throw SystemError("cannot link " + At(name.path));
        Touch(name.path);
    }
}

// False when there is no such file any more.
bool Replayer::PutContent(const Name& name, bool inPlace)
{
    const std::string from = places_.upper + name.path, to = At(name.path);
    const FileDescriptor source(open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!source && errno == ENOENT)
        return false;
    struct stat status = {};
    if (!source || fstat(source.Get(), &status) != 0)
        throw SystemError("cannot open " + from);
    if (!inPlace)
        Remove(name.path);
    else if (truncate(to.c_str(), 0) != 0) // opened first, the old content would be read
        throw SystemError("cannot write " + to);
    const FileDescriptor target(
        open(to.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | (inPlace ? 0 : O_CREAT | O_EXCL),
             status.st_mode & 07777));
    if (!target)
        throw SystemError("cannot write " + to);
    if (!inPlace)
        Touch(name.path);
    CopyContent(source.Get(), target.Get(), to, [this](long long bytes) { Advance(bytes); });
    if (places_.kind == ReplayTarget::Mount)
        CopyOwnership(from, status, to);
    written_.emplace_back(to, status);
    return true;
}

// An image has no hard links of links.
void Replayer::PutLink(const Name& name)
{
    const auto status = InUpper(name);
    if (!status)
        return;
    const auto existing = Look(At(name.path));
    const std::string text = fs::read_symlink(places_.upper + name.path);
    const std::string& root = places_.linkRoot;
    const bool rooted = !root.empty() && text.starts_with(root + "/");
    const std::string rest = rooted ? text.substr(root.size()) : text;
    bool same = existing && S_ISLNK(existing->st_mode);
    if (same) {
        const std::string old = fs::read_symlink(At(name.path));
        same = old == text || (rooted && old == places_.target + rest);
    }
    if (!same) {
        Remove(name.path);
        const std::string& target = places_.kind == ReplayTarget::Image ? rest : text;
        if (symlink(target.c_str(), At(name.path).c_str()) != 0)
            throw SystemError("cannot create the link " + At(name.path));
        Touch(name.path);
    }
    if (places_.kind == ReplayTarget::Mount)
        CopyOwnership(places_.upper + name.path, *status, At(name.path));
    written_.emplace_back(At(name.path), *status);
}

void Replayer::PutSpecial(const Name& name)
{
    const auto status = InUpper(name);
    if (!status)
        return;
    Remove(name.path);
    if (mknod(At(name.path).c_str(), status->st_mode, status->st_rdev) != 0)
        throw SystemError("cannot create " + At(name.path));
    Touch(name.path);
    CopyOwnership(places_.upper + name.path, *status, At(name.path));
    written_.emplace_back(At(name.path), *status);
}

void Replayer::SetTimes()
{
    for (const auto& [path, status] : written_)
        CopyTimes(status, path);
    std::set<std::string> directories = touched_;
    directories.insert(plan_.left.begin(), plan_.left.end());
    for (const Directory& directory : plan_.directories)
        directories.insert(directory.path);
    // One that has its time keeps the others too.
    for (const std::string& path : directories) {
        const auto wanted = Look(places_.upper + path), is = Look(At(path));
        if (wanted && is && Nanoseconds(wanted->st_mtim) / 100 != Nanoseconds(is->st_mtim) / 100)
            CopyTimes(*wanted, At(path));
    }
}

void Replayer::Advance(long long bytes)
{
    writtenBytes_ += bytes;
    // A file may grow meanwhile.
    const auto percent =
        static_cast<unsigned>(std::min(100LL, writtenBytes_ * 100 / std::max(1LL, totalBytes_)));
    if (percent == lastPercent_ || !progress_)
        return;
    lastPercent_ = percent;
    if (!progress_(percent, 100))
        throw ServicingError(code::cancelled, "the caller cancelled the operation");
}

} // namespace

void Replay(const ReplayPlan& plan, const ReplayPlaces& places, const Progress& progress)
{
    try {
        Replayer(plan, places, progress).Run();
    } catch (const fs::filesystem_error& error) {
        throw ServicingError(CodeOfErrno(error.code().value()), error.what());
    }
}

} // namespace kestro::servicing
