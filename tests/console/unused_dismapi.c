/* unused_dismapi.c - what the library imports as well, and no console test calls. */
#include <windows.h>

HRESULT WINAPI DismMountImage(void);
HRESULT WINAPI DismUnmountImage(void);
HRESULT WINAPI DismCommitImage(void);
HRESULT WINAPI DismAddDriver(void);
HRESULT WINAPI DismRemoveDriver(void);

HRESULT WINAPI DismMountImage(void)
{
    return E_NOTIMPL;
}

HRESULT WINAPI DismUnmountImage(void)
{
    return E_NOTIMPL;
}

HRESULT WINAPI DismCommitImage(void)
{
    return E_NOTIMPL;
}

HRESULT WINAPI DismAddDriver(void)
{
    return E_NOTIMPL;
}

HRESULT WINAPI DismRemoveDriver(void)
{
    return E_NOTIMPL;
}
