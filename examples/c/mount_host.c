/* mount_host.c - a host in C: mounts an image, adds a driver package, unmounts, and reads each call's
 * ResultFile.
 *
 *   mount_host IMAGE DIRECTORY INF RESULTS
 *
 * IMAGE is a WIM file, DIRECTORY an empty directory, RESULTS a directory for the ResultFiles. All four
 * are full paths. The changes are saved only when the driver went in. Exit code 0 is success. */
#include "kestro.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wchar.h>

#include <windows.h>

enum { kPathSize = 1024, kSectionSize = 32768 };

static const uint32_t kSaveChanges = 0, kDropChanges = 1;

/* The narrow functions take the ResultFile's path in the ANSI code page. A path that does not fit must
 * not be passed on: the report would land in another file. */
static int ResultPath(char* path, const wchar_t* directory, const wchar_t* name)
{
    wchar_t wide[kPathSize];
    BOOL lossy = FALSE;
    if (swprintf(wide, kPathSize, L"%ls\\%ls", directory, name) < 0)
        return 0;
    DeleteFileW(wide); /* keys of an earlier run would stay in the file and read like this one's */
    return WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide, -1, path, kPathSize, NULL,
                               &lossy) != 0 &&
           !lossy;
}

static void ShowFailedStep(const char* section, const char* resultFile)
{
    char result[8], code[16];
    GetPrivateProfileStringA(section, "Result", "", result, sizeof result, resultFile);
    GetPrivateProfileStringA(section, "ErrorCode", "0", code, sizeof code, resultFile);
    if (strcmp(result, "ERR") == 0)
        printf("  failed step %s, last error %s\n", section, code);
}

/* The profile functions give a section, and the list of sections, as texts one after the other with an
 * empty one at the end. */
static void ShowReport(const char* resultFile)
{
    char* const texts = malloc(kSectionSize);
    if (texts == NULL)
        return;
    GetPrivateProfileSectionNamesA(texts, kSectionSize, resultFile);
    for (const char* name = texts; *name != '\0'; name += strlen(name) + 1)
        ShowFailedStep(name, resultFile);
    /* The log: "2 - 05-03-2021 14:07:09=text", and the count under Righe. */
    GetPrivateProfileSectionA("Log", texts, kSectionSize, resultFile);
    for (const char* line = texts; *line != '\0'; line += strlen(line) + 1) {
        const char* const text = strchr(line, '=');
        if (text != NULL && strncmp(line, "Righe=", 6) != 0)
            printf("  %s\n", text + 1);
    }
    free(texts);
}

/* The narrow functions return 0 for success. */
static int Succeeded(const char* what, uint8_t returned, const char* resultFile)
{
    const int succeeded = returned == 0;
    fflush(stdout); /* the library may have printed to the same console */
    printf("%s: %s\n", what, succeeded ? "OK" : "failed");
    ShowReport(resultFile);
    return succeeded;
}

int wmain(int count, wchar_t** arguments)
{
    if (count != 5) {
        fprintf(stderr, "usage: mount_host IMAGE DIRECTORY INF RESULTS\n");
        return 2;
    }
    const wchar_t *const image = arguments[1], *const directory = arguments[2];
    const wchar_t *const inf = arguments[3], *const results = arguments[4];

    /* A new ResultFile for each call: what one call wrote is never mistaken for another's. */
    char mountFile[kPathSize], driverFile[kPathSize], unmountFile[kPathSize];
    wchar_t log[kPathSize];
    if (!ResultPath(mountFile, results, L"mount.ini") ||
        !ResultPath(driverFile, results, L"driver.ini") ||
        !ResultPath(unmountFile, results, L"unmount.ini") ||
        swprintf(log, kPathSize, L"%ls\\dism.log", results) < 0) {
        fprintf(stderr, "the paths of the result files do not fit the ANSI code page\n");
        return 2;
    }

    if (!Succeeded("mount", MountWimImage(image, directory, log, mountFile), mountFile))
        return 1;
    const int added =
        Succeeded("add driver", AddDriver(directory, inf, log, driverFile), driverFile);
    const uint32_t flags = added ? kSaveChanges : kDropChanges;
    const int unmounted =
        Succeeded("unmount", UnmountWimImage(directory, flags, log, unmountFile), unmountFile);
    return added && unmounted ? 0 : 1;
}
