// write_test.cpp - fixed keys by which a host checks that it can read what the library writes.
#include "report/write_test.h"

#include "report/operation_log.h"

#include <windows.h>

namespace kestro::library {

// Profile names compare without case: STATUS and the stamp's Status are one section of the file.

void WriteTest(const char* resultFile)
{
    OperationLog log(resultFile);
    WritePrivateProfileStringA("KESTRO_TEST", "TEST", "TEST", resultFile);
    log.WriteLastWrite();
    WritePrivateProfileStringA("STATUS", "Status", "C", resultFile);
    log.WriteLastWrite();
    log.AppendLine("This is a test created by Kestro.dll");
}

void WriteTestW(const wchar_t* resultFile) noexcept
{
    // Wide texts of its own: unlike a step write's, these keys arrive as given.
    OperationLogW log(resultFile);
    WritePrivateProfileStringW(L"KESTRO_TEST", L"TEST", L"TEST", resultFile);
    log.WriteLastWriteW();
    WritePrivateProfileStringW(L"STATUS", L"Status", L"C", resultFile);
    log.WriteLastWriteW();
    log.AppendLineW(L"This is a test created by Kestro.dll");
}

} // namespace kestro::library
