// image_commands.cpp - mount and unmount.
#include "session.h"

namespace kestro::host {

int MountCommand(const Options& options, const std::wstring& image, const std::wstring& directory)
{
    Session session(options, "mount");
    const std::wstring imagePath = FullPath(image), mountPath = FullPath(directory);
    session.Out().Progress("Mounting " + detail::Utf8(imagePath) + " into " +
                           detail::Utf8(mountPath));
    const CallResult call = session.Call<decltype(MountWimImage), decltype(MountWimImageW)>(
        "MountWimImage", imagePath.c_str(), mountPath.c_str(), session.LogFile().c_str());
    return session.Finish(call, session.OutcomeOf(call), "Mounted in " + detail::Utf8(mountPath));
}

int UnmountCommand(const Options& options, const std::wstring& directory, bool commit)
{
    constexpr std::uint32_t saveChanges = 0, dropChanges = 1;
    Session session(options, "unmount");
    const std::wstring mountPath = FullPath(directory);
    session.Out().Progress(std::string("Unmounting ") + detail::Utf8(mountPath) +
                           (commit ? ", saving its changes" : ", dropping its changes"));
    const CallResult call = session.Call<decltype(UnmountWimImage), decltype(UnmountWimImageW)>(
        "UnmountWimImage", mountPath.c_str(), commit ? saveChanges : dropChanges,
        session.LogFile().c_str());
    return session.Finish(call, session.OutcomeOf(call),
                          commit ? "Unmounted, changes saved" : "Unmounted, changes dropped");
}

} // namespace kestro::host
