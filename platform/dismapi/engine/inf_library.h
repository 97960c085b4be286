// inf_library.h - the INFs that others include.
#pragma once

#include "inf_file.h"

#include <map>
#include <memory>

namespace kestro::servicing {

// Reads each INF once, so one library serves all packages of a call.
class InfLibrary {
  public:
    // An empty root stands for no image.
    explicit InfLibrary(std::filesystem::path imageRoot = {}, unsigned language = 0);

    // From the image's INF folder, else from `folder`, where the including INF lies. Null if the INF
    // is in neither or cannot be read.
    const InfFile* Find(const std::string& name, const std::filesystem::path& folder);

  private:
    const InfFile* Read(const std::filesystem::path& file);

    std::filesystem::path root_;
    unsigned language_;
    std::map<std::filesystem::path, std::unique_ptr<InfFile>> known_;
};

} // namespace kestro::servicing
