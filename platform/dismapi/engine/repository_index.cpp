// repository_index.cpp - finds the repository's copy of an INF by its content.
#include "repository_index.h"

#include "catalog.h"
#include "image_tree.h"
#include "servicing_error.h"

namespace fs = std::filesystem;

namespace kestro::servicing {

static std::string HashOf(const fs::path& file)
{
    ContentHash hash;
    hash.AddFile(file);
    return hash.Finish();
}

std::string InfNameOfFolder(const std::string& folder)
{
    const auto dot = LowerCase(folder).rfind(".inf_");
    return dot == std::string::npos ? "" : folder.substr(0, dot + 4);
}

RepositoryIndex::RepositoryIndex(const fs::path& repository)
{
    std::error_code ignored;
    for (fs::directory_iterator folder(repository, ignored), end; folder != end;
         folder.increment(ignored)) {
        const std::string name = InfNameOfFolder(folder->path().filename().string());
        const auto inf = name.empty() ? std::nullopt : FindPath(folder->path(), name);
        if (inf && fs::is_regular_file(*inf, ignored))
            byContent_.emplace(HashOf(*inf), *inf);
    }
}

std::optional<fs::path> RepositoryIndex::CopyOf(const fs::path& inf) const
{
    const auto found = byContent_.find(HashOf(inf));
    return found == byContent_.end() ? std::nullopt : std::optional(found->second);
}

} // namespace kestro::servicing
