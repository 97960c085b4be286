// own_cost.h - each export against its floor.
#pragma once

#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

namespace kestro::bench {

// Prints a table. Throws std::runtime_error if a floor does not make its export's calls.
nlohmann::json MeasureOwnCost(bool quick, const std::wstring& resultFile);

} // namespace kestro::bench
