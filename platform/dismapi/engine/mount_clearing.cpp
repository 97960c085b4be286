// mount_clearing.cpp - clearing away mounts that are broken for good.
#include "image_store.h"
#include "servicing_error.h"

#include <sys/stat.h>

namespace kestro::servicing {
namespace {

bool IsGone(const std::string& directory)
{
    struct stat status = {};
    return stat(directory.c_str(), &status) != 0 && errno == ENOENT;
}

} // namespace

void ImageStore::ClearAwayInvalid()
{
    for (const MountInfo& mount : Mounts()) {
        if (mount.damaged)
            continue;
        const bool gone = IsGone(mount.directory);
        if (mount.state != MountState::Invalid && !gone)
            continue;
        log_.Info("clearing away the mount in " + mount.directory + ": " +
                  (gone ? "there is no such directory any more" : mount.reason));
        try {
            if (gone)
                Forget(mount.directory);
            else
                Discard(mount.directory);
        } catch (const ServicingError& error) {
            log_.Warning("the mount in " + mount.directory + " stays: " + error.what());
        }
    }
    registry_.RemoveDamaged();
}

// There is no directory left to empty.
void ImageStore::Forget(const std::string& directory)
{
    MountEntry entry = Find(directory);
    if (entry.Record().IsLazy()) {
        const LazyMount lazy = Lazy(entry);
        lazy.Clear();
        lazy.Remove();
    }
    entry.Remove();
}

} // namespace kestro::servicing
