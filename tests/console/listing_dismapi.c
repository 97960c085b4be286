/* listing_dismapi.c - a servicing API for the console tests: every image has the same two packages,
 * and an image path "fail HEX" fails to open with that code. */
#include <stdlib.h>
#include <wchar.h>

#include <windows.h>

#include <dismapi.h>

static DismDriverPackage packages[2];

HRESULT WINAPI DismInitialize(DismLogLevel level, PCWSTR log, PCWSTR scratch)
{
    (void)level, (void)log, (void)scratch;
    return S_OK;
}

HRESULT WINAPI DismShutdown(void)
{
    return S_OK;
}

HRESULT WINAPI DismOpenSession(PCWSTR image, PCWSTR windows, PCWSTR drive, DismSession* session)
{
    (void)windows, (void)drive;
    *session = 1;
    return wcsncmp(image, L"fail ", 5) == 0 ? (HRESULT)wcstoul(image + 5, NULL, 16) : S_OK;
}

HRESULT WINAPI DismCloseSession(DismSession session)
{
    (void)session;
    return S_OK;
}

HRESULT WINAPI DismGetDrivers(DismSession session, BOOL all, DismDriverPackage** list, UINT* count)
{
    (void)session, (void)all;
    packages[0].PublishedName = L"oem0.inf";
    packages[0].OriginalFileName = L"C:\\store\\first.inf";
    packages[1].PublishedName = L"oem1.inf";
    packages[1].OriginalFileName = L"C:\\store\\100% %s %x.inf";
    *list = packages;
    *count = 2;
    return S_OK;
}

HRESULT WINAPI DismGetDriverInfo(DismSession session, PCWSTR name, DismDriver** drivers,
                                 UINT* count, DismDriverPackage** package)
{
    (void)session, (void)name, (void)drivers, (void)count, (void)package;
    return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
}
