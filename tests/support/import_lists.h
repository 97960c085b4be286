// import_lists.h - what Kestro.dll may import. A new import is a decision: it goes into one of
// these.
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

// What the runtimes link in although no call of ours gets there: threads, other clocks and output,
// other libraries. Tests trap these too.
const std::vector<ListedImport>& UnreachedImports();

// What the C and C++ runtimes linked into the library use for themselves: left alone.
const std::vector<ListedImport>& RuntimeImports();

} // namespace kestro::test
