/* empty_library.c - the DLL that loading is compared with. */
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    (void)instance, (void)reason, (void)reserved;
    return TRUE;
}
