// driver_api.cpp - the driver functions. The store behind them is not built yet: they answer as the
// platform does for what it does not support.
#include "api_state.h"

using namespace kestro::servicing;

namespace {

HRESULT NotSupported(const char* function, DismSession session)
{
    return ServeInitialized(function, [&](ApiState& state) -> HRESULT {
        state.Find(session);
        Refuse(code::not_supported, "drivers cannot be serviced yet");
    });
}

} // namespace

extern "C" HRESULT WINAPI DismAddDriver(DismSession session, PCWSTR, WINBOOL)
{
    return NotSupported("DismAddDriver", session);
}

extern "C" HRESULT WINAPI DismRemoveDriver(DismSession session, PCWSTR)
{
    return NotSupported("DismRemoveDriver", session);
}

extern "C" HRESULT WINAPI DismGetDrivers(DismSession session, WINBOOL, DismDriverPackage**, UINT*)
{
    return NotSupported("DismGetDrivers", session);
}

extern "C" HRESULT WINAPI DismGetDriverInfo(DismSession session, PCWSTR, DismDriver**, UINT*,
                                            DismDriverPackage**)
{
    return NotSupported("DismGetDriverInfo", session);
}
