// report.h - what was found, for people and for programs.
#ifndef KESTRO_CHECK_REPORT_H
#define KESTRO_CHECK_REPORT_H

#include <string>

#include <nlohmann/json.hpp>

namespace kestro::check {

// How many records of the report's parts have not passed.
std::size_t Differences(const nlohmann::ordered_json& report);

std::string ReadableReport(const nlohmann::ordered_json& report);

} // namespace kestro::check

#endif
