// upper_replay.cpp - does to a saved image what a plan says.
#include "upper_replay.h"

#include "file_content.h"
#include "file_system.h"
#include "servicing_error.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
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
    void MoveAway();
    void PutDirectory(const Directory& directory, std::size_t number);
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
    std::string Held(std::size_t number) const { return holding_ + "/" + std::to_string(number); }
    void Touch(const std::string& path) { touched_.insert(path.substr(0, path.rfind('/'))); }

    const ReplayPlan& plan_;
    const ReplayPlaces& places_;
    const Progress& progress_;
    std::string holding_;           // where directories wait for their new places
    std::set<std::string> touched_; // directories whose entries were changed
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
    for (std::size_t i = 0; i < plan_.directories.size(); ++i)
        PutDirectory(plan_.directories[i], i);
    if (!holding_.empty() && rmdir(holding_.c_str()) != 0)
        throw SystemError("cannot remove " + holding_);
    for (const std::string& path : plan_.removed)
        Remove(path);
    for (const File& file : plan_.files)
        PutFile(file);
    SetTimes();
    if (root && !holding_.empty() && !touched_.contains(""))
        CopyTimes(*root, places_.target);
}

// Before anything is made or removed: a directory may move out of one that goes, into one that comes, or
// into the place of one that itself moves.
void Replayer::MoveAway()
{
    const auto depth = [&](std::size_t number) {
        const std::string& from = plan_.directories[number].from;
        return std::count(from.begin(), from.end(), '/');
    };
    std::vector<std::size_t> moved;
    for (std::size_t i = 0; i < plan_.directories.size(); ++i)
        if (plan_.directories[i].how == Directory::How::Moved)
            moved.push_back(i);
    if (moved.empty())
        return;
    std::stable_sort(moved.begin(), moved.end(),
                     [&](std::size_t a, std::size_t b) { return depth(a) > depth(b); });
    std::string name = At("/kestro-moving");
    while (Look(name))
        name += '_';
    if (mkdir(name.c_str(), 0700) != 0)
        throw SystemError("cannot create " + name);
    holding_ = name;
    for (const std::size_t number : moved) {
        const std::string from = At(plan_.directories[number].from);
        if (rename(from.c_str(), Held(number).c_str()) == 0)
            continue;
        if (errno == ENOENT)
            throw ServicingError(code::not_a_valid_mount,
                                 "the image has no directory " + plan_.directories[number].from +
                                     ", which was moved to " + plan_.directories[number].path);
        throw SystemError("cannot move " + from);
    }
}

void Replayer::PutDirectory(const Directory& directory, std::size_t number)
{
    const std::string path = At(directory.path);
    const auto existing = Look(path);
    if (directory.how == Directory::How::Moved) {
        Remove(directory.path);
        if (rename(Held(number).c_str(), path.c_str()) != 0)
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
    bool inPlace = true;
    if (file.write) {
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
