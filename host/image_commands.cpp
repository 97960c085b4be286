// image_commands.cpp - mount and unmount.
#include "session.h"

namespace kestro::host {

int MountCommand(const Context& context, const std::wstring& image, const std::wstring& directory)
{
    Session session(context, "mount");
    const std::wstring imagePath = FullPath(image), mountPath = FullPath(directory);
    session.Out().Progress("Mounting " + detail::Utf8(imagePath) + " into " +
                           detail::Utf8(mountPath));
    const ResultPath result = session.NextResult();
    return session.Finish(session.Kestro().Mount(imagePath, mountPath, session.FilesWith(result)),
                          "Mounted in " + detail::Utf8(mountPath));
}

int UnmountCommand(const Context& context, const std::wstring& directory, bool commit)
{
    Session session(context, "unmount");
    const std::wstring mountPath = FullPath(directory);
    session.Out().Progress(std::string("Unmounting ") + detail::Utf8(mountPath) +
                           (commit ? ", saving its changes" : ", dropping its changes"));
    const ResultPath result = session.NextResult();
    return session.Finish(session.Kestro().Unmount(mountPath, commit, session.FilesWith(result)),
                          commit ? "Unmounted, changes saved" : "Unmounted, changes dropped");
}

} // namespace kestro::host
