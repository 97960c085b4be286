// link_host.c - a host without a run-time library, for the import library that link.exe takes.
__declspec(dllimport) void WriteTest(const char* resultFile);

int Start(void)
{
    WriteTest(".\\result.ini");
    return 0;
}
