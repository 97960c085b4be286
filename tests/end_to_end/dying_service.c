/* dying_service.c - a library under Kestro.dll's names whose clean ends the disk service and reports success, as one
 * does when the platform delivers a zero for the answer that never came. */
#include <stdint.h>
#include <stdio.h>

#include <windows.h>

#include <winsvc.h>

static void EndService(void)
{
    SERVICE_STATUS_PROCESS status;
    DWORD needed = 0;
    const SC_HANDLE manager = OpenSCManagerW(NULL, NULL, SC_MANAGER_CONNECT);
    const SC_HANDLE service = OpenServiceW(manager, L"vds", SERVICE_QUERY_STATUS);
    if (QueryServiceStatusEx(service, SC_STATUS_PROCESS_INFO, (BYTE*)&status, sizeof status,
                             &needed)) {
        const HANDLE process =
            OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, status.dwProcessId);
        TerminateProcess(process, 1);
        WaitForSingleObject(process, INFINITE);
        CloseHandle(process);
    }
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
}

int32_t __stdcall CleanDisk(const wchar_t* disk, uint8_t force, uint8_t forceOem, uint8_t full,
                            const char* file)
{
    (void)disk, (void)force, (void)forceOem, (void)full;
    EndService();
    FILE* const report = fopen(file, "w");
    if (report != NULL) {
        fputs("[Log]\nRighe=3\n2 - x=Last HRESULT: \n3 - x=0\n", report);
        fclose(report);
    }
    return 1;
}
