// inf_search.h - the INF files that a command's arguments name.
#pragma once

#include <string>
#include <vector>

namespace kestro::host {

// A file stands for itself, a directory for every INF below it, in the order of their names. Each file once.
// Throws UsageError for what does not exist and for a directory without any.
std::vector<std::wstring> FindInfs(const std::vector<std::wstring>& arguments);

} // namespace kestro::host
