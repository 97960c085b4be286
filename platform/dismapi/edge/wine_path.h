// wine_path.h - Windows paths as paths of this machine.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

std::string Utf8(const WCHAR* text);
// With its terminating zero.
std::vector<WCHAR> Wide(const std::string& utf8);

// The Windows path of a file of this machine, with its terminating zero.
std::vector<WCHAR> WindowsPath(const std::string& hostPath);

// The last part need not exist. Nothing when a part before it does not.
std::optional<std::string> FindHostPath(const WCHAR* windowsPath);
// The same; throws path_not_found, or invalid_parameter for a null or empty path.
std::string HostPath(const WCHAR* windowsPath);

// Where the records of all mounts are kept: in the prefix, which is this platform's machine.
std::string MountRecordsFolder();
// What serves images lies beside this library.
std::string ServerProgram();
// Where the log goes when its caller names none.
std::string DefaultLogFile();

} // namespace kestro::servicing
