// hive_check.h - refuses a damaged registry hive before it is changed.
#pragma once

#include <string>
#include <string_view>

namespace kestro::servicing {

// hivex ends the process when it frees a cell that is none, or frees one twice. This throws
// ServicingError unless each cell of the key below the root, and of everything below the key, is a cell
// of its own. The rest of the hive may be what it is: nothing there is changed.
void CheckHive(const std::string& content, std::string_view key, const std::string& file);

} // namespace kestro::servicing
