// hive_log_pages.h - registry logs as Windows wrote them before 8.1: a bitmap and the pages it marks.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestro::servicing {

// Each log has a valid header. False if none of them belongs to the hive; it is then as it was.
bool ReplayPages(std::string& hive, const std::vector<std::string_view>& logs);

} // namespace kestro::servicing
