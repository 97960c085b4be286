/* dismapi_trap.c - a DismApi.dll that satisfies the loader; nobody may get as far as calling it. */
#include <stdio.h>
#include <windows.h>

#define TRAP(name)                                                                                 \
    __declspec(dllexport) void name(void)                                                          \
    {                                                                                              \
        fputs("the test let a call of " #name " through to the loader's DismApi.dll\n", stderr);   \
        fflush(stderr);                                                                            \
        ExitProcess(99);                                                                           \
    }

TRAP(DismInitialize)
TRAP(DismShutdown)
TRAP(DismMountImage)
TRAP(DismUnmountImage)
TRAP(DismOpenSession)
TRAP(DismCloseSession)
TRAP(DismCommitImage)
TRAP(DismAddDriver)
TRAP(DismRemoveDriver)
TRAP(DismGetDrivers)
TRAP(DismGetDriverInfo)
