// driver_list.h - arranging any number of driver packages into the library's lists of eight.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace kestro::host {

constexpr std::size_t kListLength = 8;

// The INF files that the arguments name: a file stands for itself, a directory for every INF below it,
// in the order of their names. Each file once. Throws UsageError for what does not exist and for a
// directory without any.
std::vector<std::wstring> FindInfs(const std::vector<std::wstring>& arguments);

// One call of AddDriverList: the packages it is about, and the eight entries it takes. A list that is
// short of eight is filled with its own last path: a null entry would erase the report, and another
// package would be reported twice.
struct DriverList {
    std::vector<std::wstring> packages;
    std::array<const wchar_t*, kListLength> Entries() const;
};

std::vector<DriverList> Arrange(const std::vector<std::wstring>& infs);

} // namespace kestro::host
