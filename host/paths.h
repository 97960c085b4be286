// paths.h - paths as the user names them, and as Windows does. With KESTRO_PATHS=unix in the environment a program
// under Wine takes and shows the paths of the system around it.
#pragma once

#include <string>

namespace kestro::host {

// An argument that may be a path, in UTF-8, as Windows has it.
std::wstring Given(const std::string& argument);

std::wstring FullPath(const std::wstring& path);

// A full path of Windows as the user has it, in UTF-8; any other text as it is.
std::string Shown(const std::wstring& path);
std::string Shown(const std::string& path);
// A line that may end in such a path.
std::string ShownAtEnd(const std::string& line);
// A text whose examples are of drive D:.
std::string WithExamples(std::string text);

} // namespace kestro::host
