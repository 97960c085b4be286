/* planted_dismapi.c - a DismApi.dll that somebody planted: it says so when it is loaded. */
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID reserved)
{
    (void)module;
    (void)reserved;
    if (reason == DLL_PROCESS_ATTACH) {
        static const char text[] = "the planted DismApi.dll is loaded\n";
        DWORD written = 0;
        WriteFile(GetStdHandle(STD_ERROR_HANDLE), text, sizeof text - 1, &written, NULL);
    }
    return TRUE;
}

HRESULT WINAPI Fail(void)
{
    return E_NOTIMPL;
}
