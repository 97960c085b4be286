// platform_calls.h - the platform behind the library while it is measured: recorded, empty, or real where
// it writes.
#pragma once

#include "floor.h"
#include "support/import_table.h"

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace kestro::bench {

using Functions = std::map<std::string, void*>;

// What DismGetDrivers finds from now on.
void MakePackages(UINT count);

// The servicing API succeeds and does nothing, the console takes nothing; the profile writer is real.
Functions RealWriterFunctions();
Platform RealWriterPlatform();
// The profile writer and the clock do nothing either.
Functions EmptyFunctions();
Platform EmptyPlatform();

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

// The platform calls of one call of an export.
struct Recording {
    std::vector<Call> calls;
    std::deque<std::string> narrow;
    std::deque<std::wstring> wide;
    int lines = 0; // of section Log
    int steps = 0; // writes to a step's section
    int conversions = 0;
    int writes = 0;

    const char* Keep(const char* text)
    {
        return text ? narrow.emplace_back(text).c_str() : nullptr;
    }
    const wchar_t* Keep(const wchar_t* text)
    {
        return text ? wide.emplace_back(text).c_str() : nullptr;
    }
    void CountWrite(bool log, bool righe, bool status)
    {
        ++writes;
        lines += log && !righe;
        steps += !log && !status;
    }
};

Recording RecordCall(const std::function<void()>& call);
// Heap allocations of one call on the empty platform, after a first one.
long long CountAllocations(const std::function<void()>& call);

} // namespace kestro::bench
