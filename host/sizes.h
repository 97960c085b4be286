// sizes.h - sizes as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace kestro::host {

// "4.7 GB", of 1024 MB each.
std::string SizeText(std::uint64_t bytes);

} // namespace kestro::host
