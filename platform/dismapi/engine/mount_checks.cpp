// mount_checks.cpp - what has to hold of a mount's directory before anything is done with it.
#include "mount_checks.h"

#include "servicing_error.h"

namespace kestro::servicing {

FileIdentity DirectoryIdentity(const std::string& directory)
{
    const FileIdentity identity = IdentityOf(directory);
    return {identity.device, identity.inode, 0, 0};
}

void RequireEmptyDirectory(const std::string& directory)
{
    struct stat status = {};
    if (stat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
        throw ServicingError(code::directory_missing, directory + " is not an existing directory");
    if (!IsEmptyDirectory(directory))
        throw ServicingError(code::directory_not_empty, directory + " is not empty");
}

void RequireSameDirectory(const MountRecord& record)
{
    if (record.directoryIdentity != DirectoryIdentity(record.directory))
        throw ServicingError(code::not_a_valid_mount,
                             record.directory + " is not the directory that was mounted");
}

void RequireHere(MountPresence presence, const std::string& directory)
{
    if (presence == MountPresence::Elsewhere)
        throw ServicingError(code::not_a_valid_mount,
                             "the image of " + directory +
                                 " is mounted in another mount namespace; work with it there");
}

} // namespace kestro::servicing
