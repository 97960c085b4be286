// api_state.h - the API's state in this process, and the one way into and out of each of its functions.
#pragma once

#include "codes.h"
#include "driver_store.h"
#include "image_store.h"
#include "inf_package.h"
#include "platform_log.h"
#include "servicing_error.h"
#include "wine_path.h"

#include "servicing_api.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

namespace kestro::servicing {

struct Session {
    std::string root; // the image's root directory, a path of this machine
    std::shared_ptr<PackageReader> packages;
    // One for all sessions on the image: it gathers their changes until they are saved.
    std::shared_ptr<DriverStore> drivers;
};

// One per process, and only ever touched inside Serve, which lets one call in at a time.
struct ApiState {
    bool initialized = false;
    PlatformLog log;
    std::map<DismSession, Session> sessions;
    DismSession nextSession = 1;

    ImageStore Images() const { return ImageStore(MountRecordsFolder(), log, ServerProgram()); }
    // Of an image that has no session yet it makes one.
    std::shared_ptr<DriverStore> DriversOf(const std::string& root) const;
    // Throws invalid_session for a handle that is not open.
    const Session& Find(DismSession session) const;
};

// Runs the body of one API function. Whatever goes wrong inside is logged under the function's name
// and leaves as its code; no C++ exception passes the edge.
HRESULT Serve(const char* function, const std::function<HRESULT(ApiState&)>& body);
// The same for every function but DismInitialize: without it they fail.
HRESULT ServeInitialized(const char* function, const std::function<HRESULT(ApiState&)>& body);

// What went wrong in this thread's last failing call; empty if none failed.
const std::string& LastError();

[[noreturn]] inline void Refuse(Code code, const std::string& reason)
{
    throw ServicingError(code, reason);
}

// A caller's progress callback and cancel event as the engine asks them; empty when there is neither. An event
// that is set already ends the call before it has begun, and what is no event is refused.
Progress ProgressOf(DISM_PROGRESS_CALLBACK callback, void* userData, HANDLE cancelEvent);

// How an image that is mounted with these flags comes into its directory, by KESTRO_MOUNT in the
// program's environment: "lazy", "extract" or neither. Who asks for a quick mount gets no slow one.
MountWay MountWayOf(DWORD flags);

// The directory to mount into, to unmount or to mount again; one whose parent is missing is missing too.
std::string MountDirectory(PCWSTR mountPath);

// What a commit's flags ask for. Flags that ask for nothing known, or for a discard, are refused.
CommitOptions CommitOptionsOf(DWORD flags);

} // namespace kestro::servicing
