// recorded_writers.h - profile writers that fail and note which file they were to write.
#pragma once

#include "support/import_table.h"

#include <set>
#include <utility>
#include <vector>

namespace kestro::test {

// Behind Kestro.dll for as long as it lives.
class RecordedWriters {
  public:
    RecordedWriters();
    ~RecordedWriters();
    RecordedWriters(const RecordedWriters&) = delete;
    RecordedWriters& operator=(const RecordedWriters&) = delete;

    // The very pointers that arrived, of both writers.
    const std::set<const void*>& Files() const;

  private:
    std::vector<std::pair<Import, void*>> originals_;
};

} // namespace kestro::test
