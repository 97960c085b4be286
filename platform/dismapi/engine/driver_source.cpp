// driver_source.cpp - a driver package where it comes from, before it is added.
#include "driver_source.h"

#include "servicing_error.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace kestro::servicing {

// A name from an INF must stay below the INF's folder.
static void CheckName(const std::string& path)
{
    for (const auto& part : fs::path(path))
        if (part == ".." || part.is_absolute() ||
            part.string().find_first_of(":\\\n") != std::string::npos)
            throw ServicingError(code::invalid_name,
                                 "the INF names a file outside its folder: " + path);
}

static void CheckClass(const DriverPackage& package, const std::string& name)
{
    if (!LowerCase(name).ends_with(".inf"))
        throw ServicingError(code::invalid_parameter, name + " is not named .inf");
    if (package.className.empty() || package.classGuid.empty())
        throw ServicingError(code::inf_without_class, name + " names no Class and ClassGuid");
    if (package.classGuid.size() != 38)
        throw ServicingError(code::inf_class_invalid, name + " has a malformed ClassGuid");
    if (!package.applies)
        throw ServicingError(code::not_supported, name + " " + TextOf(package.fit));
}

DriverSource::DriverSource(const DriverPackage& package) : package_(package)
{
    const std::string name = package.inf.filename().string();
    const fs::path folder = package.inf.parent_path();
    CheckClass(package, name);
    AddFile(StoredInf(), package.inf);
    if (!package.catalog.empty()) {
        CheckName(package.catalog);
        catalog_ = FindPath(folder, package.catalog);
        if (catalog_)
            AddFile(package.catalog, *catalog_);
    }
    for (const auto& file : package.files) {
        CheckName(file.Path());
        const auto source = FindPath(folder, file.Path());
        if (!source || !fs::is_regular_file(*source))
            throw ServicingError(code::file_not_found,
                                 name + " names " + file.Path() + ", which is missing");
        AddFile(file.Path(), *source);
    }
}

// Several sections may name one file, in different case.
void DriverSource::AddFile(const std::string& path, const fs::path& source)
{
    if (std::none_of(files_.begin(), files_.end(),
                     [&](const File& file) { return EqualNames(file.path, path); }))
        files_.push_back({path, source});
}

std::string DriverSource::StoredInf() const
{
    return LowerCase(package_.inf.filename().string());
}

std::uint64_t DriverSource::Size() const
{
    std::uint64_t size = 0;
    for (const auto& file : files_)
        size += fs::file_size(file.source);
    return size;
}

std::string DriverSource::Hash() const
{
    std::vector<File> files = files_;
    for (auto& file : files)
        file.path = LowerCase(file.path);
    std::sort(files.begin(), files.end(),
              [](const File& a, const File& b) { return a.path < b.path; });
    ContentHash hash;
    for (const auto& file : files) {
        hash.Add(file.path);
        hash.AddFile(file.source);
    }
    return hash.Finish();
}

CatalogVerdict DriverSource::CheckSignature(const ImageWindows& windows, bool forceUnsigned) const
{
    std::vector<PackageFile> files;
    for (const auto& file : files_)
        if (file.source != catalog_)
            files.push_back({file.source, file.path});
    const auto version = windows.major != 0
                             ? std::optional(WindowsVersion{windows.major, windows.minor})
                             : std::nullopt;
    auto verdict = catalog_ ? CheckCatalog(*catalog_, files, version) : CatalogVerdict();
    if (verdict.state == CatalogState::Signed || forceUnsigned)
        return verdict;
    const std::string name = package_.inf.filename().string();
    const Code code = CodeOf(verdict.state);
    if (package_.catalog.empty())
        throw ServicingError(code, name + " is unsigned: it names no catalog");
    throw ServicingError(code, name + " is unsigned: its catalog " + package_.catalog + " " +
                                   (catalog_ ? verdict.reason : "is missing"));
}

} // namespace kestro::servicing
