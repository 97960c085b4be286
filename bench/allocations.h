// allocations.h - counts what the library allocates.
#pragma once

#include <functional>
#include <map>
#include <string>

namespace kestro::bench {

// By the allocating function; those that are not called are missing.
using Allocations = std::map<std::string, long long>;

// Of one call on the empty platform, after a first one.
Allocations CountAllocations(const std::function<void()>& call);

} // namespace kestro::bench
