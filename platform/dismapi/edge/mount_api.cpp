// mount_api.cpp - initialising and shutting down, mounting and unmounting.
#include "api_state.h"
#include "file_system.h"
#include "termination.h"

using namespace kestro::servicing;

namespace {

MountRequest RequestOf(PCWSTR imageFile, PCWSTR mountPath, UINT index, PCWSTR name,
                       DismImageIdentifier identifier, DWORD flags)
{
    constexpr DWORD known = DISM_MOUNT_READONLY | DISM_MOUNT_OPTIMIZE | DISM_MOUNT_CHECK_INTEGRITY;
    if ((flags & ~known) != 0)
        Refuse(code::invalid_parameter, "unknown mount flags");
    MountRequest request;
    if (identifier == DismImageName) {
        if (name == nullptr || name[0] == 0)
            Refuse(code::invalid_parameter, "the image's name is missing");
        request.name = Utf8(name);
    } else if (identifier != DismImageIndex) {
        Refuse(code::invalid_parameter, "unknown image identifier");
    }
    request.image = HostPath(imageFile);
    request.directory = MountDirectory(mountPath);
    request.index = index;
    request.readOnly = (flags & DISM_MOUNT_READONLY) != 0;
    request.way = MountWayOf(flags);
    request.checkIntegrity = (flags & DISM_MOUNT_CHECK_INTEGRITY) != 0;
    return request;
}

} // namespace

extern "C" HRESULT WINAPI DismInitialize(DismLogLevel level, PCWSTR logFile, PCWSTR scratch)
{
    return Serve("DismInitialize", [&](ApiState& state) -> HRESULT {
        if (state.initialized)
            Refuse(HRESULT_FROM_WIN32(ERROR_ALREADY_INITIALIZED), "the API is already initialised");
        if (level < DismLogErrors || level > DismLogErrorsWarningsInfo)
            Refuse(code::invalid_parameter, "unknown log level");
        if (scratch != nullptr) {
            // Not needed here, but a wrong one is wrong on every platform.
            if (!IsDirectory(HostPath(scratch)))
                Refuse(code::path_not_found, "there is no scratch directory " + Utf8(scratch));
        }
        // A log that cannot be written costs the log, not the work.
        const auto path =
            logFile != nullptr && logFile[0] != 0 ? FindHostPath(logFile) : DefaultLogFile();
        state.log = PlatformLog(path.value_or(""), static_cast<LogLevel>(level));
        PassOnTermination();
        state.initialized = true;
        state.log.Info("the embedded servicing API is initialised");
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismShutdown()
{
    return ServeInitialized("DismShutdown", [](ApiState& state) -> HRESULT {
        if (!state.sessions.empty())
            Refuse(code::open_session_handles,
                   std::to_string(state.sessions.size()) + " sessions are still open");
        state.log.Info("the embedded servicing API is shut down");
        state.initialized = false;
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismMountImage(PCWSTR imageFile, PCWSTR mountPath, UINT index,
                                         PCWSTR name, DismImageIdentifier identifier, DWORD flags,
                                         HANDLE cancelEvent, DISM_PROGRESS_CALLBACK progress,
                                         PVOID userData)
{
    return ServeInitialized("DismMountImage", [&](ApiState& state) -> HRESULT {
        state.Images().Mount(RequestOf(imageFile, mountPath, index, name, identifier, flags),
                             ProgressOf(progress, userData, cancelEvent));
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismUnmountImage(PCWSTR mountPath, DWORD flags, HANDLE cancelEvent,
                                           DISM_PROGRESS_CALLBACK progress, PVOID userData)
{
    return ServeInitialized("DismUnmountImage", [&](ApiState& state) -> HRESULT {
        const std::string directory = MountDirectory(mountPath);
        for (const auto& [handle, session] : state.sessions)
            if (session.root == directory)
                Refuse(code::open_handles_at_unmount, "a session on " + directory + " is open");

        if (flags == DISM_DISCARD_IMAGE)
            state.Images().Discard(directory);
        else
            state.Images().CommitAndUnmount(directory, CommitOptionsOf(flags),
                                            ProgressOf(progress, userData, cancelEvent));
        return S_OK;
    });
}
