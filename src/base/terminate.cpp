// terminate.cpp - keeps the C++ runtime small. libstdc++'s own handler prints the name of an
// uncaught exception's type, and brings 75 KB of demangler and formatter into the library to do so.
#include <cstdlib>
#include <exception>

#if defined(__GLIBCXX__)
namespace __gnu_cxx {
void __verbose_terminate_handler()
{
    std::abort();
}
} // namespace __gnu_cxx
#endif
