// hive_check.h - refuses a damaged registry hive before it is changed.
#pragma once

#include <string>
#include <vector>

namespace kestro::servicing {

// A cell that is freed twice, or was none, would be given to two keys. This throws ServicingError unless
// each cell of the keys at `paths` ('\' between names, from the root) and of everything below them, and
// each key and list on the way there, is a cell of its own. The rest of the hive may be what it is:
// nothing there is changed.
void CheckHive(const std::string& content, const std::vector<std::string>& paths,
               const std::string& file);

} // namespace kestro::servicing
