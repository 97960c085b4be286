/* deaf_kestro.c - a library under Kestro.dll's names that installs and writes nothing: the failures that the
 * real one does not have under Wine. */
#include <stdint.h>

#include <windows.h>

int32_t __stdcall InfInstall(const wchar_t* path)
{
    (void)path;
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
}

void __stdcall WriteTest(const char* file)
{
    (void)file;
}

void __stdcall WriteTestW(const wchar_t* file)
{
    (void)file;
}
