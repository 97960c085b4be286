// inf_source_files.h - where below its folder an INF says that its files are.
#pragma once

#include "driver_install.h"
#include "inf_file.h"

#include <map>

namespace kestro::servicing {

class InfSourceFiles {
  public:
    InfSourceFiles(const InfFile& inf, Architecture architecture);

    // All that [SourceDisksFiles] and its variant for the architecture list, in their order.
    const std::vector<SourceFile>& All() const { return files_; }
    bool Lists(const std::string& name) const { return places_.count(LowerCase(name)) != 0; }
    // What is not listed lies in the INF's own folder.
    SourceFile Find(const std::string& name) const;

  private:
    std::vector<SourceFile> files_;
    std::map<std::string, std::size_t> places_; // by the name in lower case
};

} // namespace kestro::servicing
