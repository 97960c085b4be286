// image_commands.cpp - mount and unmount.
#include "direct_command.h"
#include "image_choice.h"
#include "interrupt.h"
#include "session.h"

namespace kestro::host {
namespace {

using nlohmann::json;

struct Mounting {
    std::wstring image, directory;
    std::uint32_t index = 1;
    bool readOnly = false;

    std::string Done() const
    {
        return "Mounted in " + Shown(directory) +
               (index != 1 ? ", image " + std::to_string(index) : "") +
               (readOnly ? ", read-only" : "");
    }
    json Document() const
    {
        return {{"image", Shown(image)},
                {"directory", Shown(directory)},
                {"index", index},
                {"read_only", readOnly}};
    }
};

// The user has ended a mount that could only be brought to its end.
int TakeBack(Session& session, const Mounting& mounting, Outcome outcome)
{
    const ResultPath result = session.NextResult();
    const bool unmounted =
        session.Kestro().Unmount(mounting.directory, false, session.FilesWith(result)).succeeded;
    outcome.succeeded = false;
    if (session.Out().Json()) {
        json document = session.Document(outcome);
        document.update(mounting.Document());
        session.Out().Document(document);
    }
    session.Out().Error(unmounted ? "interrupted; nothing is mounted"
                                  : "interrupted, and " + Shown(mounting.directory) +
                                        " is still mounted");
    return kExitInterrupted;
}

// MountWimImage takes the first image, read-write.
int MountByLibrary(Session& session, const Mounting& mounting)
{
    const ResultPath result = session.NextResult();
    const Outcome outcome =
        session.Kestro().Mount(mounting.image, mounting.directory, session.FilesWith(result));
    if (!outcome.succeeded || !Interrupted())
        return session.Finish(outcome, mounting.Done(), mounting.Document());
    return TakeBack(session, mounting, outcome);
}

int MountDirectly(const Context& context, const Mounting& mounting)
{
    return RunDirectly(context, "mount", [&](const Servicing& servicing, json& document) {
        document.update(mounting.Document());
        servicing.Mount(mounting.image, mounting.directory, mounting.index, mounting.readOnly,
                        context.out->LiveWatch());
        // A mount that could not be ended any more is taken back.
        if (Interrupted()) {
            servicing.Unmount(mounting.directory, false);
            throw ServicingError("DismMountImage", HRESULT_FROM_WIN32(ERROR_REQUEST_ABORTED), "");
        }
        context.out->Line(mounting.Done());
    });
}

} // namespace

int MountCommand(const Context& context, const std::wstring& image, const std::wstring& directory,
                 const MountFlags& flags)
{
    const InterruptGuard guard;
    Session session(context, "mount");
    Mounting mounting{FullPath(image), FullPath(directory), 1, flags.readOnly};
    if (!flags.index.empty() && flags.index != "1") {
        json document = mounting.Document();
        document["command"] = "mount";
        const auto images = ImagesOf(context, mounting.image, document);
        if (!images)
            return kExitFailed;
        mounting.index = ChooseImage(mounting.image, *images, flags.index).index;
    }
    session.Out().Progress("Mounting " + Shown(mounting.image) + " into " +
                           Shown(mounting.directory));
    return mounting.index == 1 && !mounting.readOnly ? MountByLibrary(session, mounting)
                                                     : MountDirectly(context, mounting);
}

int UnmountCommand(const Context& context, const std::wstring& directory, bool commit)
{
    Session session(context, "unmount");
    const std::wstring mountPath = FullPath(directory);
    session.Out().Progress(std::string("Unmounting ") + Shown(mountPath) +
                           (commit ? ", saving its changes" : ", dropping its changes"));
    const ResultPath result = session.NextResult();
    return session.Finish(session.Kestro().Unmount(mountPath, commit, session.FilesWith(result)),
                          commit ? "Unmounted, changes saved" : "Unmounted, changes dropped");
}

} // namespace kestro::host
