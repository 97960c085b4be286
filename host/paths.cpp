// paths.cpp - paths as the user names them, and as Windows does.
#include "paths.h"

#include "kestro.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <regex>

#include <windows.h>

namespace kestro::host {
namespace {

// What Wine's kernel32 has besides Windows' functions. Its texts are in the system's own code, UTF-8.
template <class Function>
Function* WineFunction(const char* name)
{
    const FARPROC function = GetProcAddress(GetModuleHandleW(L"kernel32.dll"), name);
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(function));
}

using ToUnix = char* CDECL(const wchar_t*);
using ToWindows = wchar_t* CDECL(const char*);

struct HeapDeleter {
    void operator()(void* text) const { HeapFree(GetProcessHeap(), 0, text); }
};

bool WantsUnixPaths()
{
    static const bool wants = [] {
        wchar_t value[8] = L"";
        return GetEnvironmentVariableW(L"KESTRO_PATHS", value, 8) == 4 &&
               std::wstring(value) == L"unix" &&
               WineFunction<ToUnix>("wine_get_unix_file_name") != nullptr &&
               WineFunction<ToWindows>("wine_get_dos_file_name") != nullptr;
    }();
    return wants;
}

bool StartsAtADrive(const std::string& text, std::size_t at = 0)
{
    return text.size() >= at + 3 && std::isalpha(static_cast<unsigned char>(text[at])) != 0 &&
           text[at + 1] == ':' && text[at + 2] == '\\';
}

} // namespace

std::wstring Given(const std::string& argument)
{
    if (WantsUnixPaths() && argument.starts_with('/')) {
        const std::unique_ptr<wchar_t, HeapDeleter> path(
            WineFunction<ToWindows>("wine_get_dos_file_name")(argument.c_str()));
        if (path)
            return path.get();
    }
    return detail::Wide(argument, CP_UTF8);
}

std::wstring FullPath(const std::wstring& path)
{
    return std::filesystem::absolute(path).wstring();
}

std::string Shown(const std::wstring& path)
{
    std::string text = detail::Utf8(path);
    if (!WantsUnixPaths() || !StartsAtADrive(text))
        return text;
    // Wine knows what is there. What is not hangs on the last directory that is.
    std::filesystem::path known = path;
    std::wstring rest;
    for (;;) {
        const std::unique_ptr<char, HeapDeleter> found(
            WineFunction<ToUnix>("wine_get_unix_file_name")(known.c_str()));
        if (found)
            return found.get() + detail::Utf8(rest);
        if (!known.has_relative_path())
            return text;
        rest.insert(0, L"/" + known.filename().wstring());
        known = known.parent_path();
    }
}

std::string Shown(const std::string& path)
{
    return WantsUnixPaths() ? Shown(detail::Wide(path, CP_UTF8)) : path;
}

std::string ShownAtEnd(const std::string& line)
{
    for (std::size_t at = 0; at < line.size(); ++at)
        if (StartsAtADrive(line, at))
            return line.substr(0, at) + Shown(line.substr(at));
    return line;
}

std::string WithExamples(std::string text)
{
    if (!WantsUnixPaths())
        return text;
    text = std::regex_replace(text, std::regex(R"((\\\\\?\\\w+))"), "'$1'"); // a shell's quotes
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        const bool path = StartsAtADrive(text, at);
        const std::size_t end = path ? text.find_first_of(" \",\n", at) : at + 1;
        const std::string part = text.substr(at, end - at);
        shown +=
            path ? "/srv" + std::regex_replace(part.substr(2), std::regex(R"(\\+)"), "/") : part;
        at = (std::min)(end, text.size());
    }
    return shown;
}

} // namespace kestro::host
