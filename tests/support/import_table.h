// import_table.h - the import address table of a loaded DLL.
#pragma once

#include <string>
#include <vector>
#include <windows.h>

namespace kestro::test {

struct Import {
    std::string dll;  // lower case
    std::string name; // "#n" for an import by number
    void** slot;      // where the loaded DLL finds the function
};

std::vector<Import> ImportsOf(HMODULE module);

// Lets the DLL find another function in that slot from now on.
void Redirect(const Import& import, void* function);

} // namespace kestro::test
