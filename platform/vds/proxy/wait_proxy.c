/* wait_proxy.c - IVdsAsync::Wait on the client's side. A caller looks at the delivered result alone, so
 * a service that dies under the call is delivered there too; left to itself the call would deliver
 * zero, which reads as success. */
#define COBJMACROS
#include "vds.h"

HRESULT CALLBACK IVdsAsync_Wait_Proxy(IVdsAsync* This, HRESULT* pHrResult,
                                      VDS_ASYNC_OUTPUT* pAsyncOut)
{
    const HRESULT result = IVdsAsync_RemoteWait_Proxy(This, pHrResult, pAsyncOut);
    if (FAILED(result) && pHrResult)
        *pHrResult = result;
    return result;
}

HRESULT __RPC_STUB IVdsAsync_Wait_Stub(IVdsAsync* This, HRESULT* pHrResult,
                                       VDS_ASYNC_OUTPUT* pAsyncOut)
{
    return IVdsAsync_Wait(This, pHrResult, pAsyncOut);
}
