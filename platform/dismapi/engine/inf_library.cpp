// inf_library.cpp - the INFs that others include.
#include "inf_library.h"

#include "servicing_error.h"

namespace fs = std::filesystem;

namespace kestro::servicing {

InfLibrary::InfLibrary(fs::path imageRoot, unsigned language)
    : root_(std::move(imageRoot)), language_(language)
{
}

const InfFile* InfLibrary::Find(const std::string& name, const fs::path& folder)
{
    if (!LowerCase(name).ends_with(".inf") || name.find_first_of("/\\:") != std::string::npos)
        return nullptr;
    if (const InfFile* const inBox =
            root_.empty() ? nullptr : Read(PathInImage(root_, "Windows/INF") / LowerCase(name)))
        return inBox;
    return folder.empty() ? nullptr : Read(folder / LowerCase(name));
}

const InfFile* InfLibrary::Read(const fs::path& file)
{
    const auto [known, isNew] = known_.emplace(file, nullptr);
    if (!isNew)
        return known->second.get();
    const auto found = FindPath(file.parent_path(), file.filename().string());
    std::error_code unknown;
    if (!found || !fs::is_regular_file(fs::symlink_status(*found, unknown)))
        return nullptr;
    try {
        known->second = std::make_unique<InfFile>(InfFile::Open(*found, language_));
    } catch (const ServicingError&) {
        // Windows goes on without an INF that is none.
    }
    return known->second.get();
}

} // namespace kestro::servicing
