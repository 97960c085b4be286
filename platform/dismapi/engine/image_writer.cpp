// image_writer.cpp - changes an image through libwim's read-write mount.
#include "image_writer.h"

#include "file_system.h"
#include "image_server.h"
#include "mount_table.h"
#include "servicing_error.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace kestro::servicing {
namespace {

std::string Shown(const std::string& folder)
{
    return folder + "/image";
}

std::string LockOf(const std::string& folder)
{
    return folder + "/served";
}

void MakeFolders(const std::string& folder)
{
    for (const std::string& path : {folder, Shown(folder), folder + "/staging"})
        if (mkdir(path.c_str(), 0700) != 0)
            throw SystemError("cannot create " + path);
    const FileDescriptor lock(open(LockOf(folder).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (!lock)
        throw SystemError("cannot create " + LockOf(folder));
}

} // namespace

std::string WriterFolder(const std::string& imageFile)
{
    return imageFile + ".writing";
}

void ClearWriterFolder(const std::string& folder)
{
    if (!IsDirectory(folder))
        return;
    if (!MountsOn(Shown(folder)).empty())
        Unmount(Shown(folder), Unmounting::Anyway);
    EndServing(LockOf(folder));
    EmptyDirectory(folder);
    if (rmdir(folder.c_str()) != 0)
        throw SystemError("cannot remove " + folder);
}

bool WriteImage(const ImageWriter& writer, const WriteOptions& options,
                const std::function<bool(const std::string& directory)>& work)
{
    const std::string folder = WriterFolder(writer.imageFile);
    ClearWriterFolder(folder);
    bool done = false;
    try {
        MakeFolders(folder);
        ImageServer server;
        server.program = writer.serverProgram;
        server.image = writer.imageFile;
        server.index = writer.index;
        server.shownAs = server.mountPoint = Shown(folder);
        server.lock = LockOf(folder);
        server.name = "kestro-writing";
        server.staging = folder + "/staging";
        StartServing(server, ServerAccess::Own);
        done = work(Shown(folder));
        if (done) {
            CommitShownImage(Shown(folder), options);
            AwaitEndOfServing(LockOf(folder));
        }
    } catch (...) {
        try {
            ClearWriterFolder(folder);
        } catch (const ServicingError&) {
            // The next writer tries again; why the work failed is what counts.
        }
        throw;
    }
    ClearWriterFolder(folder);
    return done;
}

} // namespace kestro::servicing
