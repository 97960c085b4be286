// repository_index.h - finds the repository's copy of an INF by its content.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace kestro::servicing {

// A repository folder is named after its INF: "usb.inf" for usb.inf_amd64_0123456789abcdef, empty
// for a folder with another kind of name.
std::string InfNameOfFolder(const std::string& folder);

// Reads every INF of the repository once. Windows keeps no other link between Windows\INF and the
// repository that would be there in every image.
class RepositoryIndex {
  public:
    struct Copy {
        std::filesystem::path readable, inImage;
    };

    // A folder of the repository, where it can be read and where it is to be in the image.
    void Add(const std::filesystem::path& readable, const std::filesystem::path& inImage);
    std::optional<Copy> CopyOf(const std::filesystem::path& inf) const;

  private:
    std::map<std::string, Copy> byContent_;
};

} // namespace kestro::servicing
