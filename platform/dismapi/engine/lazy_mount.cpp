// lazy_mount.cpp - an image that is shown and not extracted.
#include "lazy_mount.h"

#include "mount_table.h"
#include "servicing_error.h"
#include "upper_state.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/syscall.h>

#include <algorithm>

namespace kestro::servicing {
namespace {

bool MayMount()
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2] = {};
    return syscall(SYS_capget, &header, data) == 0 &&
           (data[CAP_SYS_ADMIN / 32].effective & (1U << (CAP_SYS_ADMIN % 32))) != 0;
}

void MakeFolder(const std::string& path)
{
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
        throw SystemError("cannot create " + path);
}

// A path without a character that means something in a mount's options, and never too long for them.
std::string ByDescriptor(const FileDescriptor& directory)
{
    return "/proc/self/fd/" + std::to_string(directory.Get());
}

FileDescriptor OpenDirectory(const std::string& path)
{
    FileDescriptor directory(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory)
        throw SystemError("cannot open " + path);
    return directory;
}

} // namespace

LazyMount::LazyMount(const MountRecord& record, std::string name, std::string serverProgram,
                     int mountLock)
    : image_(record.image), directory_(record.directory), layers_(record.layers),
      name_(std::move(name)), serverProgram_(std::move(serverProgram)), index_(record.index),
      mountLock_(mountLock), readOnly_(record.readOnly)
{
}

void LazyMount::RequireSystem()
{
    if (!MayMount())
        throw ServicingError(code::access_denied, "this user may not mount");
    const FileDescriptor fuse(open("/dev/fuse", O_RDWR | O_CLOEXEC));
    if (!fuse)
        throw SystemError("cannot open /dev/fuse");
}

MountPresence LazyMount::Look() const
{
    const std::vector<MountPoint> mounts = MountsOn(directory_);
    const auto ours = std::find_if(mounts.begin(), mounts.end(),
                                   [&](const MountPoint& mount) { return mount.source == name_; });
    if (ours == mounts.end())
        return IsServedElsewhere(Lock()) ? MountPresence::Elsewhere : MountPresence::Broken;
    if (!IsServed(Lock()))
        return MountPresence::Broken;
    return ours + 1 == mounts.end() ? MountPresence::Whole : MountPresence::Covered;
}

void LazyMount::MakeLayers() const
{
    MakeFolder(layers_);
    const FileDescriptor lock(
        open(Lock().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock)
        throw SystemError("cannot create " + Lock());
    if (readOnly_)
        return;
    for (const std::string& folder : {Lower(), Upper(), Work()})
        MakeFolder(folder);
    // What the upper directory is, the mount shows as its root.
    struct stat status = {};
    if (stat(directory_.c_str(), &status) != 0)
        throw SystemError("cannot look at " + directory_);
    if (chown(Upper().c_str(), status.st_uid, status.st_gid) != 0 ||
        chmod(Upper().c_str(), status.st_mode & 07777) != 0)
        throw SystemError("cannot set the mode of " + Upper());
}

void LazyMount::Serve() const
{
    ImageServer server;
    server.program = serverProgram_;
    server.image = image_;
    server.index = index_;
    server.shownAs = directory_;
    server.mountPoint = readOnly_ ? directory_ : Lower();
    server.lock = Lock();
    server.name = name_;
    server.mountLock = mountLock_;
    StartServing(server, readOnly_ ? ServerAccess::Others : ServerAccess::Own);
}

void LazyMount::PutOn() const
{
    const FileDescriptor lower = OpenDirectory(Lower());
    const FileDescriptor upper = OpenDirectory(Upper());
    const FileDescriptor work = OpenDirectory(Work());
    // Everything is said: systems have defaults of their own.
    const std::string options =
        "lowerdir=" + ByDescriptor(lower) + ",upperdir=" + ByDescriptor(upper) +
        ",workdir=" + ByDescriptor(work) + ",redirect_dir=on,index=off,metacopy=off";
    if (mount(name_.c_str(), directory_.c_str(), "overlay", MS_NOSUID | MS_NODEV,
              options.c_str()) != 0)
        throw LayersUnfit(CodeOfErrno(errno),
                          "cannot lay " + Upper() + " over the image: " + std::strerror(errno));
}

void LazyMount::Mount() const
{
    Serve();
    if (readOnly_)
        return;
    ForgetOrigins(Upper());
    PutOn();
}

void LazyMount::TakeOff() const
{
    const std::vector<MountPoint> mounts = MountsOn(directory_);
    const bool isOurs = !mounts.empty() && mounts.back().source == name_;
    if (!isOurs && Look() == MountPresence::Covered)
        throw ServicingError(code::partly_unmounted,
                             "something else is mounted over " + directory_);
    if (isOurs && !Unmount(directory_, Unmounting::WhenUnused))
        throw ServicingError(code::partly_unmounted,
                             directory_ + " is in use; close what is open in it");
}

void LazyMount::Clear() const
{
    for (;;) {
        const std::vector<MountPoint> mounts = MountsOn(directory_);
        if (mounts.empty() || mounts.back().source != name_)
            break;
        if (!Unmount(directory_, Unmounting::WhenUnused))
            Unmount(directory_, Unmounting::Anyway);
    }
    if (!MountsOn(Lower()).empty())
        Unmount(Lower(), Unmounting::Anyway);
    EndServing(Lock());
}

bool LazyMount::Remove() const
{
    UnmountBelow(layers_);
    if (!AwaitEndOfServing(Lock()))
        return false;
    if (!IsDirectory(layers_))
        return true;
    EmptyDirectory(layers_);
    if (rmdir(layers_.c_str()) != 0)
        throw SystemError("cannot remove " + layers_);
    return true;
}

} // namespace kestro::servicing
