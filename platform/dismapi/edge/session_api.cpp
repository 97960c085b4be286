// session_api.cpp - servicing sessions on an offline image, and saving it.
#include "api_state.h"
#include "file_system.h"

using namespace kestro::servicing;

namespace {

std::string WindowsDirectoryName(PCWSTR windowsDirectory)
{
    std::string name = windowsDirectory != nullptr ? Utf8(windowsDirectory) : "Windows";
    while (!name.empty() && (name.back() == '\\' || name.back() == '/'))
        name.pop_back();
    return name.substr(name.find_last_of("\\/:") + 1);
}

std::string ImageRoot(const ApiState& state, PCWSTR imagePath, PCWSTR windowsDirectory)
{
    if (lstrcmpiW(imagePath, DISM_ONLINE_IMAGE) == 0)
        Refuse(code::not_supported, "there is no running Windows to service");
    const std::string root = HostPath(imagePath);
    state.Images().PutBack(root);
    if (!IsDirectory(root))
        Refuse(code::path_not_found, "there is no image directory " + root);
    const std::string windows = WindowsDirectoryName(windowsDirectory);
    if (FindDirectoryIn(root, windows).empty())
        Refuse(code::path_not_found, root + " holds no directory " + windows);
    return root;
}

} // namespace

extern "C" HRESULT WINAPI DismOpenSession(PCWSTR imagePath, PCWSTR windowsDirectory,
                                          PCWSTR systemDrive, DismSession* session)
{
    (void)systemDrive; // where the boot files lie; nothing here services them
    return ServeInitialized("DismOpenSession", [&](ApiState& state) -> HRESULT {
        if (imagePath == nullptr || session == nullptr)
            Refuse(code::invalid_parameter,
                   "the image path or the place for the session is missing");
        const std::string root = ImageRoot(state, imagePath, windowsDirectory);
        const auto drivers = state.DriversOf(root);
        *session = state.nextSession++;
        state.sessions[*session] = {root, std::make_shared<PackageReader>(root), drivers};
        state.log.Info("session " + std::to_string(*session) + " is open on " + root);
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismCloseSession(DismSession session)
{
    return ServeInitialized("DismCloseSession", [&](ApiState& state) -> HRESULT {
        const auto drivers = state.Find(session).drivers;
        state.sessions.erase(session);
        drivers->Save();
        state.log.Info("session " + std::to_string(session) + " is closed");
        return S_OK;
    });
}

extern "C" HRESULT WINAPI DismCommitImage(DismSession session, DWORD flags, HANDLE cancelEvent,
                                          DISM_PROGRESS_CALLBACK progress, PVOID userData)
{
    return ServeInitialized("DismCommitImage", [&](ApiState& state) -> HRESULT {
        const Session& open = state.Find(session);
        const CommitOptions options = CommitOptionsOf(flags);
        const Progress watch = ProgressOf(progress, userData, cancelEvent);
        open.drivers->Save();
        // Changes to a directory that is no mount are saved already.
        if (!state.Images().Commit(open.root, options, watch))
            state.log.Info(open.root + " is no mounted image; there is nothing to save");
        return S_OK;
    });
}
