// import_lists.h - the functions that the tests watch. A new one in the library's sources is a decision: it
// goes into the first list. What else a toolchain's runtime imports is left alone.
#pragma once

#include <string_view>
#include <vector>

namespace kestro::test {

struct ListedImport {
    std::string_view dll; // lower case
    std::string_view name;
};

// The platform: tests replace each of these by a double or a trap.
const std::vector<ListedImport>& PlatformImports();

// What a runtime may link in although no call of ours gets there: threads, other clocks and output,
// other libraries. Tests trap these too.
const std::vector<ListedImport>& UnreachedImports();

} // namespace kestro::test
