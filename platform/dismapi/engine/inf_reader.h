// inf_reader.h - an INF's sections together with those that they need of other INFs.
#pragma once

#include "inf_library.h"

#include <vector>

namespace kestro::servicing {

// A line and the INF that it stands in.
struct PlacedLine {
    const InfFile* inf = nullptr;
    InfLine line;
};
using PlacedLines = std::vector<PlacedLine>;

// Throws for an INF that names its own sections over and over, as none of a driver does.
class InfReader {
  public:
    InfReader(const InfFile& inf, InfLibrary& library) : inf_(inf), library_(library) {}

    const InfFile& Inf() const { return inf_; }
    // In the place of a Needs directive stand the lines of the sections that it names.
    PlacedLines Section(const std::string& name);
    // A section that a line of `from` names: of that INF, or else of one that was included.
    PlacedLines Named(const InfFile& from, const std::string& name);
    // The lines of all sections that the directives of that name list.
    PlacedLines Listed(const PlacedLines& section, const char* directive);

  private:
    using Visited = std::vector<std::pair<const InfFile*, std::string>>;

    void AddSection(const InfFile& inf, const std::string& name, PlacedLines& lines,
                    Visited& visited);
    void AddNeeded(const InfFile& inf, const InfLine& needs, PlacedLines& lines, Visited& visited);
    void Include(const InfLine& line);
    std::vector<InfLine> Lines(const InfFile& inf, const std::string& name);
    const InfFile* Holder(const InfFile& from, const std::string& name) const;

    const InfFile& inf_;
    InfLibrary& library_;
    std::vector<const InfFile*> included_;
    std::size_t bytesRead_ = 0;
};

} // namespace kestro::servicing
