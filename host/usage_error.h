// usage_error.h - an argument the host cannot work with: told to the user, exit code 2.
#pragma once

#include <stdexcept>

namespace kestro::host {

class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace kestro::host
