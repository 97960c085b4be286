// wine_path.cpp - Windows paths as paths of this machine.
#include "wine_path.h"

#include "file_system.h"
#include "servicing_error.h"

#include <dlfcn.h>

namespace kestro::servicing {
std::string Utf8(const WCHAR* text)
{
    const int length = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(length > 0 ? length : 1), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), length, nullptr, nullptr);
    result.pop_back();
    return result;
}

std::vector<WCHAR> Wide(const std::string& utf8)
{
    const int length = MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, nullptr, 0);
    std::vector<WCHAR> text(static_cast<std::size_t>(length > 0 ? length : 1));
    MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, text.data(), length);
    return text;
}

std::vector<WCHAR> WindowsPath(const std::string& hostPath)
{
    WCHAR* const path = wine_get_dos_file_name(hostPath.c_str());
    if (path == nullptr)
        throw ServicingError(code::path_not_found, "Windows has no path to " + hostPath);
    const std::vector<WCHAR> result(path, path + lstrlenW(path) + 1);
    HeapFree(GetProcessHeap(), 0, path);
    return result;
}

std::optional<std::string> FindHostPath(const WCHAR* windowsPath)
{
    const DWORD length = GetFullPathNameW(windowsPath, 0, nullptr, nullptr);
    if (length == 0)
        return {};
    std::vector<WCHAR> full(length);
    if (GetFullPathNameW(windowsPath, length, full.data(), nullptr) == 0)
        return {};
    char* const path = wine_get_unix_file_name(full.data());
    if (path == nullptr)
        return {};
    std::string result = AbsolutePath(path);
    HeapFree(GetProcessHeap(), 0, path);
    return result;
}

std::string HostPath(const WCHAR* windowsPath)
{
    if (windowsPath == nullptr || windowsPath[0] == 0)
        throw ServicingError(code::invalid_parameter, "a path is missing");
    if (auto path = FindHostPath(windowsPath))
        return *path;
    throw ServicingError(code::path_not_found, "there is no path " + Utf8(windowsPath));
}

std::string MountRecordsFolder()
{
    return HostPath(L"C:\\ProgramData") + "/Kestro/Mounts";
}

std::string ServerProgram()
{
    Dl_info library = {};
    if (dladdr(reinterpret_cast<const void*>(&ServerProgram), &library) == 0)
        return {};
    const std::string path = AbsolutePath(library.dli_fname);
    return path.substr(0, path.find_last_of('/')) + "/kestro-imagefs";
}

std::string DefaultLogFile()
{
    return HostPath(L"C:\\windows") + "/dism.log";
}

} // namespace kestro::servicing
