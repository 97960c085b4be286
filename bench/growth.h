// growth.h - GetDrivers with more and more packages.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace kestro::bench {

nlohmann::json MeasureGrowth(bool quick, const std::string& resultFile);

} // namespace kestro::bench
