// api_state.cpp - the API's state in this process.
#include "api_state.h"

#include "file_system.h"

#include <cstdio>
#include <mutex>

namespace kestro::servicing {
namespace {

std::mutex g_entrance;
ApiState g_state;
thread_local std::string t_lastError;

HRESULT Report(const char* function, Code code, const char* reason)
{
    char bits[16];
    std::snprintf(bits, sizeof bits, "0x%08X", static_cast<unsigned>(code));
    t_lastError = std::string(function) + " failed with " + bits + ": " + reason;
    g_state.log.Error(t_lastError);
    return code;
}

} // namespace

std::shared_ptr<DriverStore> ApiState::DriversOf(const std::string& root) const
{
    for (const auto& [handle, session] : sessions)
        if (AbsolutePath(session.root) == AbsolutePath(root))
            return session.drivers;
    return std::make_shared<DriverStore>(root, log);
}

const Session& ApiState::Find(DismSession session) const
{
    const auto found = sessions.find(session);
    if (found == sessions.end())
        Refuse(code::invalid_session, "session " + std::to_string(session) + " is not open");
    return found->second;
}

HRESULT Serve(const char* function, const std::function<HRESULT(ApiState&)>& body)
{
    const std::lock_guard entered(g_entrance);
    try {
        return body(g_state);
    } catch (const ServicingError& error) {
        return Report(function, error.GetCode(), error.what());
    } catch (const std::bad_alloc& error) {
        return Report(function, code::out_of_memory, error.what());
    } catch (const std::exception& error) {
        return Report(function, code::unexpected, error.what());
    }
}

HRESULT ServeInitialized(const char* function, const std::function<HRESULT(ApiState&)>& body)
{
    return Serve(function, [&](ApiState& state) {
        if (!state.initialized)
            Refuse(code::not_initialized, "DismInitialize has not been called");
        return body(state);
    });
}

const std::string& LastError()
{
    return t_lastError;
}

Progress ProgressOf(DISM_PROGRESS_CALLBACK callback, void* userData, HANDLE cancelEvent)
{
    if (callback == nullptr && cancelEvent == nullptr)
        return {};
    if (cancelEvent != nullptr) {
        const DWORD state = WaitForSingleObject(cancelEvent, 0);
        if (state == WAIT_FAILED)
            Refuse(code::invalid_parameter, "the cancel event is no event");
        if (state == WAIT_OBJECT_0)
            Refuse(code::cancelled, "the caller has ended the call before it began");
    }
    return [=](unsigned current, unsigned total) {
        if (callback != nullptr)
            callback(current, total, userData);
        return cancelEvent == nullptr || WaitForSingleObject(cancelEvent, 0) != WAIT_OBJECT_0;
    };
}

MountWay MountWayOf(DWORD flags)
{
    char value[16] = {};
    const DWORD length = GetEnvironmentVariableA("KESTRO_MOUNT", value, sizeof value);
    const std::string way = length < sizeof value ? value : "too long";
    if (way == "lazy")
        return MountWay::Lazy;
    if (way == "extract")
        return (flags & DISM_MOUNT_OPTIMIZE) != 0 ? MountWay::Any : MountWay::Extracted;
    if (!way.empty())
        Refuse(code::invalid_parameter,
               "KESTRO_MOUNT is \"" + way + "\"; it may be \"lazy\", \"extract\" or nothing");
    return MountWay::Any;
}

std::string MountDirectory(PCWSTR mountPath)
{
    if (mountPath == nullptr || mountPath[0] == 0)
        Refuse(code::invalid_parameter, "the mount directory is missing");
    if (auto path = FindHostPath(mountPath))
        return *path;
    Refuse(code::directory_missing, "there is no directory " + Utf8(mountPath));
}

CommitOptions CommitOptionsOf(DWORD flags)
{
    constexpr DWORD known = DISM_COMMIT_GENERATE_INTEGRITY | DISM_COMMIT_APPEND;
    if ((flags & ~known) != 0)
        Refuse(code::invalid_parameter, "flags that do not go with a commit");
    if ((flags & DISM_COMMIT_APPEND) != 0)
        Refuse(code::not_supported, "saving into a new image is not supported");
    CommitOptions options;
    options.integrity = (flags & DISM_COMMIT_GENERATE_INTEGRITY) != 0;
    return options;
}

} // namespace kestro::servicing
