// driver_store.cpp - finds the driver packages of an offline Windows tree.
#include "driver_store.h"

#include "repository_index.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace kestro::servicing {

DriverStore::DriverStore(fs::path imageRoot)
    : root_(std::move(imageRoot)), changeFolder_(In("Windows/System32/DriverStore/kestro-change"))
{
    if (!fs::is_directory(In("Windows")))
        throw ServicingError(code::path_not_found, root_.string() + " holds no Windows folder");
}

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

// Windows 8 and later have a hive of their own for drivers; before, the database was in SYSTEM.
std::optional<fs::path> DriverStore::HivePath() const
{
    const fs::path drivers = In("Windows/System32/config/DRIVERS");
    if (fs::exists(drivers))
        return drivers;
    const fs::path system = In("Windows/System32/config/SYSTEM");
    if (fs::exists(system) && DriverHive(system).HasDatabase())
        return system;
    return std::nullopt;
}

static bool ByNumberThenName(const PublishedInf& left, const PublishedInf& right)
{
    const auto leftNumber = OemNumber(left.name);
    const auto rightNumber = OemNumber(right.name);
    if (leftNumber && rightNumber && leftNumber != rightNumber)
        return *leftNumber < *rightNumber;
    return LowerCase(left.name) < LowerCase(right.name);
}

// The repository folder that the registry names for each package that has no copy of its own INF
// there.
static void FindByRegistry(std::vector<PublishedInf>& list, const fs::path& hivePath,
                           const fs::path& repository)
{
    const auto open = [](const PublishedInf& inf) { return !inf.stored && !inf.inBox; };
    if (std::none_of(list.begin(), list.end(), open))
        return;
    const DriverHive hive(hivePath);
    for (auto& inf : list) {
        const auto folder = open(inf) ? hive.FolderOf(inf.name) : std::nullopt;
        if (folder && !InfNameOfFolder(*folder).empty())
            inf.stored = FindPath(repository, *folder + "/" + InfNameOfFolder(*folder));
    }
}

std::vector<PublishedInf> DriverStore::List(bool all) const
{
    return WithFileErrors([&] {
        std::vector<PublishedInf> list;
        const fs::path folder = In("Windows/INF");
        if (!fs::is_directory(folder))
            return list;
        const RepositoryIndex repository(Repository());
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::string name = entry.path().filename().string();
            const bool inBox = !OemNumber(name);
            if (LowerCase(name).ends_with(".inf") && (all || !inBox) && entry.is_regular_file())
                list.push_back({name, entry.path(), inBox, repository.CopyOf(entry.path())});
        }
        std::sort(list.begin(), list.end(), ByNumberThenName);
        try {
            if (const auto hive = HivePath())
                FindByRegistry(list, *hive, Repository());
        } catch (const ServicingError&) {
            // A hive that cannot be read takes nothing away from what the folders show.
        }
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
        const fs::path inCatalogs = CatalogPath(inf.name);
        if (!inf.inBox && fs::exists(inCatalogs))
            return CheckCatalog(inCatalogs, {{inf.path, inf.name}});
        const auto stored = inf.stored && !catalogName.empty()
                                ? FindPath(inf.stored->parent_path(), catalogName)
                                : std::nullopt;
        return stored ? CheckCatalog(*stored, {{inf.path, inf.name}}) : CatalogVerdict();
    });
}

} // namespace kestro::servicing
