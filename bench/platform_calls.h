// platform_calls.h - the platform behind the library while it is measured: empty, or real where it writes
// and opens.
#pragma once

#include "floor.h"
#include "support/import_table.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace kestro::bench {

using Functions = std::map<std::string, void*>;

// What DismGetDrivers finds from now on.
void MakePackages(UINT count);

// Services succeed and do nothing, the console takes nothing; the profile writer, the clock and the opening
// of files are real.
const Platform& RealPlatform();
// Those do nothing either. Conversions stay the system's own: their results are needed.
const Platform& EmptyPlatform();

// What the library's imports have to lead to for the library to call that platform.
Functions FunctionsOf(const Platform& platform);

// The library's imports lead here for as long as this lives.
class Redirected {
  public:
    explicit Redirected(const Functions& functions);
    ~Redirected();
    Redirected(const Redirected&) = delete;
    Redirected& operator=(const Redirected&) = delete;

  private:
    std::vector<std::pair<test::Import, void*>> originals_;
};

} // namespace kestro::bench
