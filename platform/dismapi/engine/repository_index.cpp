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

void RepositoryIndex::Add(const fs::path& readable, const fs::path& inImage)
{
    std::error_code ignored;
    const std::string name = InfNameOfFolder(inImage.filename().string());
    const auto inf = name.empty() ? std::nullopt : FindPath(readable, name);
    if (inf && fs::is_regular_file(*inf, ignored))
        byContent_.emplace(HashOf(*inf), Copy{*inf, inImage / inf->filename()});
}

std::optional<RepositoryIndex::Copy> RepositoryIndex::CopyOf(const fs::path& inf) const
{
    const auto found = byContent_.find(HashOf(inf));
    return found == byContent_.end() ? std::nullopt : std::optional(found->second);
}

} // namespace kestro::servicing
