/* trace_probe.c - makes one call and ends without giving the runtime a chance to flush anything.
 *   trace_probe KESTRO_DLL list|listw|info IMAGE RESULTFILE
 *   trace_probe KESTRO_DLL clean DISK RESULTFILE */
#include <stdlib.h>
#include <wchar.h>

#include <objbase.h>
#include <windows.h>

#include <kestro.h>

#define FUNCTION(type, name) ((type)GetProcAddress(library, name))

int wmain(int argc, wchar_t** argv)
{
    typedef uint8_t(KESTRO_CALL * List)(const wchar_t*, const wchar_t*, const char*);
    typedef uint8_t(KESTRO_CALL * ListW)(const wchar_t*, const wchar_t*, const wchar_t*);
    typedef uint8_t(KESTRO_CALL * Info)(const wchar_t*, const wchar_t*, const wchar_t*,
                                        const char*);
    typedef int32_t(KESTRO_CALL * Clean)(const wchar_t*, uint8_t, uint8_t, uint8_t, const char*);
    char resultFile[MAX_PATH];
    uint8_t value = 99;

    if (argc != 5)
        return 98;
    HMODULE library = LoadLibraryW(argv[1]);
    if (library == NULL)
        return 97;
    WideCharToMultiByte(CP_ACP, 0, argv[4], -1, resultFile, MAX_PATH, NULL, NULL);
    if (wcscmp(argv[2], L"list") == 0)
        value = FUNCTION(List, "GetDrivers")(argv[3], NULL, resultFile);
    else if (wcscmp(argv[2], L"listw") == 0)
        value = FUNCTION(ListW, "GetDriversW")(argv[3], NULL, argv[4]);
    else if (wcscmp(argv[2], L"clean") == 0 && SUCCEEDED(CoInitialize(NULL)))
        value = (uint8_t)FUNCTION(Clean, "CleanDisk")(argv[3], 0, 0, 0, resultFile);
    else if (wcscmp(argv[2], L"info") == 0)
        value = FUNCTION(Info, "GetDriverInfo")(argv[3], L"oem9.inf", NULL, resultFile);
    TerminateProcess(GetCurrentProcess(), value);
    return 96;
}
