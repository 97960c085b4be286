// hive_log_entries.h - registry logs as Windows 8.1 and later write them: numbered entries with hashes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestro::servicing {

// Each log has a valid header and begins with an entry. False if none of them continues the hive, or
// the entry that would is damaged: the hive is then worth nothing.
bool ReplayEntries(std::string& hive, const std::vector<std::string_view>& logs);

} // namespace kestro::servicing
