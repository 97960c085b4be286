// kestro_library.cpp - finds and loads the Kestro.dll under test.
#include "support/kestro_library.h"

#include <cstdlib>
#include <stdexcept>

namespace kestro::test {

namespace {

// KESTRO_DLL comes from the build; a path of the build machine is on drive Z: under Wine.
std::wstring LibraryPath()
{
    const char* path = std::getenv("KESTRO_DLL");
    if (!path)
        path = KESTRO_DLL_DEFAULT;
    std::wstring wide(path, path + std::char_traits<char>::length(path));
    if (wide.starts_with(L'/'))
        wide = L"Z:" + wide;
    for (wchar_t& c : wide)
        if (c == L'/')
            c = L'\\';
    return wide;
}

} // namespace

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
