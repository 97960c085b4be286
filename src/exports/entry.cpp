// entry.cpp - the library's entry point. Every call sets up what it needs, so loading and unloading
// have nothing to do.
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID)
{
    return TRUE;
}
