// driver_store.cpp - finds the driver packages of an offline Windows tree.
#include "driver_store_state.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace kestro::servicing {

DriverStore::DriverStore(fs::path imageRoot, PlatformLog log)
    : root_(std::move(imageRoot)), log_(std::move(log))
{
    if (!fs::is_directory(In("Windows")))
        throw ServicingError(code::path_not_found, root_.string() + " holds no Windows folder");
}

DriverStore::~DriverStore() = default;

fs::path DriverStore::In(const std::string& relative) const
{
    return PathInImage(root_, relative);
}

fs::path DriverStore::Repository() const
{
    return In("Windows/System32/DriverStore/FileRepository");
}

fs::path DriverStore::PublishedPath(const std::string& published) const
{
    return In("Windows/INF/" + published);
}

fs::path DriverStore::CatalogPath(const std::string& published) const
{
    return In("Windows/System32/CatRoot/{F750E6C3-38EE-11D1-85E5-00C04FC295EE}/" +
              published.substr(0, published.size() - 4) + ".cat");
}

fs::path DriverStore::Now(const fs::path& path) const
{
    if (change_)
        return change_->files.Now(path);
    return fs::exists(path) ? path : fs::path();
}

static std::set<std::string> NamesOnDisk(const fs::path& folder)
{
    std::set<std::string> names;
    if (fs::is_directory(folder))
        for (const auto& entry : fs::directory_iterator(folder))
            names.insert(entry.path().filename().string());
    return names;
}

std::set<std::string> DriverStore::NamesIn(const fs::path& folder) const
{
    if (!change_)
        return NamesOnDisk(folder);
    // While it lasts, nobody else changes the image's drivers; large folders are read once.
    const auto [read, isNew] = change_->namesOnDisk.try_emplace(folder);
    if (isNew)
        read->second = NamesOnDisk(folder);
    return change_->files.NamesIn(folder, read->second);
}

static bool ByNumberThenName(const PublishedInf& left, const PublishedInf& right)
{
    const auto leftNumber = OemNumber(left.name);
    const auto rightNumber = OemNumber(right.name);
    if (leftNumber && rightNumber && leftNumber != rightNumber)
        return *leftNumber < *rightNumber;
    return LowerCase(left.name) < LowerCase(right.name);
}

// A hive that cannot be read takes nothing away from what the folders show.
std::optional<std::string> DriverStore::RegisteredFolder(const std::string& published) const
{
    if (change_) {
        for (const auto& database : change_->Databases())
            if (auto folder = database.FolderOf(published))
                return folder;
        return std::nullopt;
    }
    for (const auto& [name, part] : {std::pair("DRIVERS", DriverDatabase::Part::Drivers),
                                     std::pair("SYSTEM", DriverDatabase::Part::System)}) {
        const fs::path file = In(std::string("Windows/System32/config/") + name);
        if (!fs::exists(file))
            continue;
        try {
            HiveFile hive(file);
            if (auto folder = DriverDatabase(hive, part).FolderOf(published))
                return folder;
        } catch (const ServicingError&) {
        }
    }
    return std::nullopt;
}

void DriverStore::FindStored(PublishedInf& inf, const RepositoryIndex& repository) const
{
    if (const auto copy = repository.CopyOf(inf.path)) {
        inf.stored = copy->readable;
        inf.original = copy->inImage;
        return;
    }
    const auto folder = inf.inBox ? std::nullopt : RegisteredFolder(inf.name);
    if (!folder || InfNameOfFolder(*folder).empty())
        return;
    const fs::path inImage = Repository() / *folder;
    const fs::path readable = Now(inImage);
    inf.stored = readable.empty() ? std::nullopt : FindPath(readable, InfNameOfFolder(*folder));
    if (inf.stored)
        inf.original = inImage / inf.stored->filename();
}

std::vector<PublishedInf> DriverStore::List(bool all) const
{
    return WithFileErrors([&] {
        std::vector<PublishedInf> list;
        const fs::path folder = In("Windows/INF");
        RepositoryIndex repository;
        for (const auto& name : NamesIn(Repository()))
            repository.Add(Now(Repository() / name), Repository() / name);
        for (const auto& name : NamesIn(folder)) {
            const bool inBox = !OemNumber(name);
            const fs::path path = Now(folder / name);
            if (!LowerCase(name).ends_with(".inf") || (inBox && !all) || !fs::is_regular_file(path))
                continue;
            PublishedInf inf{name, path, inBox, std::nullopt, folder / name};
            FindStored(inf, repository);
            list.push_back(std::move(inf));
        }
        std::sort(list.begin(), list.end(), ByNumberThenName);
        return list;
    });
}

std::optional<PublishedInf> DriverStore::Find(const std::string& published) const
{
    for (auto& inf : List(true))
        if (EqualNames(inf.name, published))
            return inf;
    return std::nullopt;
}

CatalogVerdict DriverStore::Signature(const PublishedInf& inf, const std::string& catalogName) const
{
    return WithFileErrors([&] {
        const fs::path inCatalogs = inf.inBox ? fs::path() : Now(CatalogPath(inf.name));
        if (!inCatalogs.empty())
            return CheckCatalog(inCatalogs, {{inf.path, inf.name}});
        const auto stored = inf.stored && !catalogName.empty()
                                ? FindPath(inf.stored->parent_path(), catalogName)
                                : std::nullopt;
        return stored ? CheckCatalog(*stored, {{inf.path, inf.name}}) : CatalogVerdict();
    });
}

} // namespace kestro::servicing
