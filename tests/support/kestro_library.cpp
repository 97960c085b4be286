// kestro_library.cpp - finds and loads the Kestro.dll under test.
#include "support/kestro_library.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace kestro::test {

namespace {

// KESTRO_DLL names another one than the build's; a path of the build machine is on drive Z: under Wine.
std::wstring LibraryPath()
{
    const char* path = std::getenv("KESTRO_DLL");
    if (!path)
        return BuiltFile(L"Kestro.dll");
    std::wstring wide(path, path + std::char_traits<char>::length(path));
    if (wide.starts_with(L'/'))
        wide = L"Z:" + wide;
    for (wchar_t& c : wide)
        if (c == L'/')
            c = L'\\';
    return wide;
}

} // namespace

std::wstring BuiltFile(const std::wstring& name)
{
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    const auto tests = std::filesystem::path(program).parent_path();
    return (tests.parent_path().parent_path() / L"bin" / name).wstring();
}

bool KestroLibrary::Instrumented()
{
    return std::getenv("KESTRO_INSTRUMENTED") != nullptr;
}

KestroLibrary& KestroLibrary::Get()
{
    static KestroLibrary library;
    return library;
}

KestroLibrary::KestroLibrary() : path_(LibraryPath()), module_(LoadLibraryW(path_.c_str()))
{
    if (!module_)
        throw std::runtime_error("Kestro.dll does not load, error " +
                                 std::to_string(GetLastError()));
}

void* KestroLibrary::FindAddress(const std::string& name) const
{
    const auto address = GetProcAddress(module_, name.c_str());
    if (!address)
        throw std::runtime_error("Kestro.dll does not export " + name);
    return reinterpret_cast<void*>(address);
}

} // namespace kestro::test
