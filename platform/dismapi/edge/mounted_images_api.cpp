// mounted_images_api.cpp - which images are mounted, and bringing broken mounts into order.
#include "api_state.h"
#include "image_records.h"

using namespace kestro::servicing;

extern "C" HRESULT WINAPI DismGetMountedImageInfo(DismMountedImageInfo** mountedImageInfo,
                                                  UINT* count)
{
    return ServeInitialized("DismGetMountedImageInfo", [&](ApiState& state) -> HRESULT {
        if (mountedImageInfo == nullptr || count == nullptr)
            Refuse(code::invalid_parameter,
                   "the place for the mounted images or their number is missing");
        const std::vector<MountInfo> mounts = state.Images().Mounts();
        for (const MountInfo& mount : mounts)
            if (!mount.reason.empty())
                state.log.Warning(
                    "the mount in " +
                    (mount.directory.empty() ? "an unknown directory" : mount.directory) + ": " +
                    mount.reason);
        *mountedImageInfo = MakeMountRecords(mounts);
        *count = static_cast<UINT>(mounts.size());
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismRemountImage(PCWSTR mountPath)
{
    return ServeInitialized("DismRemountImage", [&](ApiState& state) -> HRESULT {
        const std::string directory = MountDirectory(mountPath);
        if (!state.Images().IsMounted(directory))
            Refuse(code::directory_not_mounted, directory + " holds no mounted image");
        for (const auto& [handle, session] : state.sessions)
            if (session.root == directory)
                Refuse(code::open_handles_at_remount, "a session on " + directory + " is open");
        state.Images().PutBack(directory);
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismCleanupMountpoints()
{
    return ServeInitialized("DismCleanupMountpoints", [](ApiState& state) -> HRESULT {
        state.Images().ClearAwayInvalid();
        return S_OK;
    });
}
