// system_state.cpp - which system this is, and its one file that the check's calls write to.
#include "system_state.h"

#include <fstream>
#include <iterator>
#include <vector>

#include <windows.h>

namespace kestro::check {
namespace {

std::string Read(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <class Function>
Function* FromNtdll(const char* name)
{
    return reinterpret_cast<Function*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

// The one that does not depend on what a program's manifest says.
std::string WindowsVersion()
{
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    const auto get = FromNtdll<LONG WINAPI(OSVERSIONINFOW*)>("RtlGetVersion");
    if (get == nullptr || get(&version) != 0)
        return "unknown";
    return std::to_string(version.dwMajorVersion) + '.' + std::to_string(version.dwMinorVersion) +
           '.' + std::to_string(version.dwBuildNumber);
}

std::string FileVersion(const std::wstring& path)
{
    DWORD ignored = 0;
    std::vector<char> block(GetFileVersionInfoSizeW(path.c_str(), &ignored));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    if (block.empty() ||
        !GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
        !VerQueryValueW(block.data(), L"\\", reinterpret_cast<void**>(&fixed), &length))
        return "none";
    return std::to_string(HIWORD(fixed->dwFileVersionMS)) + '.' +
           std::to_string(LOWORD(fixed->dwFileVersionMS)) + '.' +
           std::to_string(HIWORD(fixed->dwFileVersionLS)) + '.' +
           std::to_string(LOWORD(fixed->dwFileVersionLS));
}

bool Elevated()
{
    HANDLE token = nullptr;
    TOKEN_ELEVATION elevation{};
    DWORD length = 0;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token))
        return false;
    const bool known =
        GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &length);
    CloseHandle(token);
    return known && elevation.TokenIsElevated != 0;
}

std::wstring Folder(UINT(WINAPI* get)(wchar_t*, UINT))
{
    wchar_t path[MAX_PATH];
    return {path, get(path, MAX_PATH)};
}

} // namespace

nlohmann::ordered_json DescribeSystem()
{
    const auto wine = FromNtdll<const char * CDECL()>("wine_get_version");
    return {{"windows", WindowsVersion()},
            {"wine", wine != nullptr ? nlohmann::ordered_json(wine()) : nullptr},
            {"dismapi", FileVersion(Folder(GetSystemDirectoryW) + L"\\DismApi.dll")},
            {"ansi_code_page", GetACP()},
            {"elevated", Elevated()}};
}

SystemSettingsFile::SystemSettingsFile()
    : path_(std::filesystem::path(Folder(GetWindowsDirectoryW)) / L"win.ini"), content_(Read(path_))
{
}

bool SystemSettingsFile::Restore() const
{
    // The profile writers' own copy goes first.
    WritePrivateProfileStringW(nullptr, nullptr, nullptr, path_.c_str());
    if (Read(path_) == content_)
        return true;
    std::ofstream(path_, std::ios::binary) << content_;
    return Read(path_) == content_;
}

} // namespace kestro::check
