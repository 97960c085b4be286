// table.h - columns for people: each as wide as its widest text, the last one as it is.
#pragma once

#include "output.h"

#include <string>
#include <vector>

namespace kestro::host {

// Headings and rows have the same number of columns.
void ShowTable(const Output& out, const std::vector<std::string>& headings,
               const std::vector<std::vector<std::string>>& rows);

} // namespace kestro::host
