// inf_install_test.cpp - InfInstall against the device installer of the system it runs on. What that
// installer answers is taken as it is: the library's part is to hand it on.
#include "kestro.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <windows.h>

namespace {

namespace fs = std::filesystem;

using Installer = BOOL(WINAPI*)(HWND, LPCWSTR, DWORD, PBOOL);

// Both calls are made on the same file; a fresh last error shows that the call set it.
void ExpectSameAsTheSystem(const wchar_t* infPath)
{
    const HMODULE newdev = LoadLibraryW(L"newdev.dll");
    ASSERT_NE(newdev, nullptr);
    const auto install = reinterpret_cast<Installer>(
        reinterpret_cast<void*>(GetProcAddress(newdev, "DiInstallDriverW")));
    ASSERT_NE(install, nullptr);

    constexpr DWORD untouched = 0xdeadbeef;
    SetLastError(untouched);
    const BOOL expected = install(nullptr, infPath, 0, nullptr);
    const DWORD expectedError = GetLastError();

    SetLastError(untouched);
    const int32_t installed = InfInstall(infPath);
    const DWORD error = GetLastError();

    EXPECT_EQ(installed, expected ? 1 : 0);
    EXPECT_EQ(error, expectedError);
    testing::Test::RecordProperty("installed", installed);
    testing::Test::RecordProperty("last_error", std::to_string(error));
    FreeLibrary(newdev);
}

TEST(InfInstall, ARealInfComesToWhatTheSystemSays)
{
    wchar_t base[MAX_PATH];
    ASSERT_NE(GetTempPathW(MAX_PATH, base), 0u);
    const fs::path inf =
        fs::path(base) / (L"kestro-" + std::to_wstring(GetCurrentProcessId()) + L".inf");
    std::ofstream(inf, std::ios::binary) << "[Version]\r\n"
                                            "Signature=\"$WINDOWS NT$\"\r\n"
                                            "Class=Ports\r\n"
                                            "ClassGuid={4D36E978-E325-11CE-BFC1-08002BE10318}\r\n"
                                            "Provider=%Maker%\r\n"
                                            "DriverVer=01/02/2021,1.2.3.4\r\n"
                                            "[Manufacturer]\r\n"
                                            "%Maker%=Models,NTamd64\r\n"
                                            "[Models.NTamd64]\r\n"
                                            "%Device%=Install,ROOT\\KESTROTEST\r\n"
                                            "[Install.NT]\r\n"
                                            "[Install.NT.Services]\r\n"
                                            "AddService=,2\r\n"
                                            "[Strings]\r\n"
                                            "Maker=\"Kestro\"\r\n"
                                            "Device=\"Kestro test port\"\r\n";
    ExpectSameAsTheSystem(inf.c_str());
    fs::remove(inf);
}

TEST(InfInstall, AMissingInfComesToWhatTheSystemSays)
{
    ExpectSameAsTheSystem(L"C:\\no such folder\\driver.inf");
}

} // namespace
