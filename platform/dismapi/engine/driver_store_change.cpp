// driver_store_change.cpp - adds and removes driver packages of an offline Windows tree.
#include "driver_store.h"

#include "file_system.h"
#include "image_lock.h"

#include <algorithm>
#include <fstream>

namespace fs = std::filesystem;

namespace kestro::servicing {

// What one Add prepares and where it goes.
struct DriverStore::Staged {
    std::string published;
    std::string folder; // name in the repository
    std::string storedInf;
    std::optional<fs::path> catalog; // source
    std::string signer;
    std::optional<fs::path> liveHive;
    DriverHive* hive = nullptr;
};

// A name from an INF must stay below the INF's folder.
static void CheckName(const std::string& path)
{
    for (const auto& part : fs::path(path))
        if (part == ".." || part.is_absolute() ||
            part.string().find_first_of(":\\") != std::string::npos)
            throw ServicingError(code::invalid_name,
                                 "the INF names a file outside its folder: " + path);
}

static std::optional<fs::path> SourceCatalog(const DriverPackage& package)
{
    if (package.catalog.empty())
        return std::nullopt;
    CheckName(package.catalog);
    return FindPath(package.inf.parent_path(), package.catalog);
}

static void CheckPackage(const DriverPackage& package)
{
    const std::string name = package.inf.filename().string();
    if (!LowerCase(name).ends_with(".inf"))
        throw ServicingError(code::invalid_parameter, name + " is not named .inf");
    if (package.className.empty() || package.classGuid.empty())
        throw ServicingError(code::inf_without_class, name + " names no Class and ClassGuid");
    if (package.classGuid.size() != 38)
        throw ServicingError(code::inf_class_invalid, name + " has a malformed ClassGuid");
    if (!package.applies)
        throw ServicingError(code::not_supported,
                             name + " has nothing for the image's processor architecture");
    for (const auto& file : package.files) {
        CheckName(file.Path());
        const auto source = FindPath(package.inf.parent_path(), file.Path());
        if (!source || !fs::is_regular_file(*source))
            throw ServicingError(code::file_not_found,
                                 name + " names " + file.Path() + ", which is missing");
    }
}

static CatalogVerdict CheckSignature(const DriverPackage& package,
                                     const std::optional<fs::path>& catalog, bool forceUnsigned)
{
    auto verdict = catalog ? CheckCatalog(*catalog, {{package.inf, package.inf.filename()}})
                           : CatalogVerdict();
    if (verdict.state == CatalogState::Signed || forceUnsigned)
        return verdict;
    const std::string name = package.inf.filename().string();
    const Code code =
        verdict.state == CatalogState::Missing ? code::package_unsigned : CodeOf(verdict.state);
    if (package.catalog.empty())
        throw ServicingError(code, name + " is unsigned: it names no catalog");
    throw ServicingError(code, name + " is unsigned: its catalog " + package.catalog + " " +
                                   (catalog ? verdict.reason : "is missing"));
}

// The hash of a package's files as they lie below `folder`; nothing if one is missing.
static std::optional<std::string> HashBelow(const fs::path& folder, const DriverPackage& package,
                                            bool withCatalog)
{
    std::vector<std::string> names{LowerCase(package.inf.filename().string())};
    if (withCatalog)
        names.push_back(LowerCase(package.catalog));
    for (const auto& file : package.files)
        names.push_back(LowerCase(file.Path()));
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    ContentHash hash;
    for (const auto& name : names) {
        const auto file = FindPath(folder, name);
        if (!file || !fs::is_regular_file(*file))
            return std::nullopt;
        hash.Add(name);
        hash.AddFile(*file);
    }
    return hash.Finish();
}

// The lowest number that neither a file nor the registry uses.
std::string DriverStore::FreeName(const std::optional<DriverHive>& hive) const
{
    for (unsigned number = 0;; ++number) {
        std::string name = "oem" + std::to_string(number) + ".inf";
        if (!fs::exists(PublishedPath(name)) && !fs::exists(CatalogPath(name)) &&
            !(hive && hive->Knows(name)))
            return name;
    }
}

AddResult DriverStore::Add(const DriverPackage& package, bool forceUnsigned)
{
    return WithFileErrors([&] {
        CheckPackage(package);
        const ImageLock lock(In("Windows"));
        FinishInterruptedChange();
        return AddUnlocked(package, forceUnsigned);
    });
}

AddResult DriverStore::AddUnlocked(const DriverPackage& package, bool forceUnsigned)
{
    Staged staged;
    staged.catalog = SourceCatalog(package);
    staged.signer = CheckSignature(package, staged.catalog, forceUnsigned).signer;
    const auto hash = HashBelow(package.inf.parent_path(), package, staged.catalog.has_value());
    if (!hash)
        throw ServicingError(code::file_not_found, "a file of the package has just disappeared");
    for (const auto& inf : List(false))
        if (inf.stored &&
            HashBelow(inf.stored->parent_path(), package, staged.catalog.has_value()) == hash)
            return {inf.name, inf.stored->parent_path(), true};

    staged.storedInf = LowerCase(package.inf.filename().string());
    staged.folder =
        staged.storedInf + "_" + ArchitectureName(ImageArchitecture(root_)) + "_" + *hash;
    staged.liveHive = HivePath();
    std::optional<DriverHive> hive;
    if (staged.liveHive)
        hive.emplace(*staged.liveHive);
    staged.hive = hive ? &*hive : nullptr;
    staged.published = FreeName(hive);

    ImageChange change;
    Stage(change, package, staged);
    Publish(change, staged);
    change.Keep();
    std::error_code ignored;
    fs::remove_all(changeFolder_, ignored);
    return {staged.published, Repository() / staged.folder, false};
}

void DriverStore::Stage(ImageChange& change, const DriverPackage& package,
                        const Staged& staged) const
{
    const fs::path folder = changeFolder_ / "package";
    change.MakeFolders(folder);
    change.Copy(package.inf, folder / staged.storedInf);
    change.Copy(package.inf, changeFolder_ / "oem.inf");
    if (staged.catalog) {
        change.Copy(*staged.catalog, folder / package.catalog);
        change.Copy(*staged.catalog, changeFolder_ / "oem.cat");
    }
    for (const auto& file : package.files) {
        // Several sections may name one file, in different case.
        if (FindPath(folder, file.Path()))
            continue;
        const fs::path to = PathInImage(folder, file.Path());
        change.MakeFolders(to.parent_path());
        change.Copy(*FindPath(package.inf.parent_path(), file.Path()), to);
    }
    if (staged.hive) {
        staged.hive->Register(
            {&package, staged.published, staged.folder, staged.storedInf, staged.signer});
        StageHive(change, *staged.hive);
    }
}

void DriverStore::StageHive(ImageChange& change, DriverHive& hive) const
{
    const fs::path live = *HivePath();
    const fs::path staged = changeFolder_ / "hive";
    change.Copy(live, changeFolder_ / "old-hive");
    change.RemoveOnUndo(staged);
    hive.Save(staged);
    fs::permissions(staged, fs::status(live).permissions());
}

// Says whose files a change is about. With it, everything staged is on disk.
void DriverStore::WriteJournal(ImageChange& change, const std::string& published,
                               const std::string& folder) const
{
    const fs::path journal = changeFolder_ / "journal";
    SyncFileSystem(changeFolder_);
    change.RemoveOnUndo(journal.string() + ".unfinished");
    change.RemoveOnUndo(journal);
    WriteWholeFile(journal, published + "\n" + folder + "\n");
}

void DriverStore::Publish(ImageChange& change, const Staged& staged) const
{
    const fs::path stored = Repository() / staged.folder;
    const fs::path catalog = CatalogPath(staged.published);
    const fs::path inf = PublishedPath(staged.published);
    change.MakeFolders(stored.parent_path());
    change.MakeFolders(inf.parent_path());
    WriteJournal(change, staged.published, staged.folder);
    if (fs::exists(stored))
        change.Move(stored, changeFolder_ / "old-package");
    change.Move(changeFolder_ / "package", stored);
    if (staged.catalog) {
        change.MakeFolders(catalog.parent_path());
        change.Move(changeFolder_ / "oem.cat", catalog);
    }
    if (staged.liveHive)
        change.Replace(*staged.liveHive, changeFolder_ / "hive", changeFolder_ / "old-hive");
    change.Move(changeFolder_ / "oem.inf", inf);
}

void DriverStore::Remove(const std::string& published)
{
    WithFileErrors([&] {
        if (!LowerCase(published).ends_with(".inf") ||
            published.find_first_of("/\\:") != std::string::npos)
            throw ServicingError(code::invalid_parameter,
                                 "\"" + published + "\" is no published name such as oem0.inf");
        if (!OemNumber(published))
            throw ServicingError(code::not_supported,
                                 published + " came with Windows and cannot be removed");
        const ImageLock lock(In("Windows"));
        FinishInterruptedChange();
        RemoveUnlocked(published);
    });
}

// Whether another published INF has its files in the same repository folder.
bool DriverStore::IsShared(const PublishedInf& inf) const
{
    const auto list = List(true);
    return std::any_of(list.begin(), list.end(), [&](const PublishedInf& other) {
        return other.stored && inf.stored &&
               other.stored->parent_path() == inf.stored->parent_path() &&
               !EqualNames(other.name, inf.name);
    });
}

void DriverStore::RemoveUnlocked(const std::string& published)
{
    const auto found = Find(published);
    if (!found)
        throw ServicingError(code::file_not_found, published + " is not in the image");
    const auto folder = found->stored && !IsShared(*found)
                            ? std::optional(found->stored->parent_path())
                            : std::nullopt;
    const auto liveHive = HivePath();
    std::optional<DriverHive> hive;
    if (liveHive)
        hive.emplace(*liveHive);
    const bool registered = hive && hive->Knows(found->name);

    ImageChange change;
    change.MakeFolders(changeFolder_);
    if (registered) {
        hive->Unregister(found->name);
        StageHive(change, *hive);
    }
    WriteJournal(change, found->name, folder ? folder->filename().string() : "");
    change.Move(found->path, changeFolder_ / "oem.inf");
    if (fs::exists(CatalogPath(found->name)))
        change.Move(CatalogPath(found->name), changeFolder_ / "oem.cat");
    const fs::path compiled = PublishedPath(found->name.substr(0, found->name.size() - 4) + ".PNF");
    if (fs::exists(compiled))
        change.Move(compiled, changeFolder_ / "oem.pnf");
    if (folder)
        change.Move(*folder, changeFolder_ / "old-package");
    if (registered)
        change.Replace(*liveHive, changeFolder_ / "hive", changeFolder_ / "old-hive");
    change.Keep();
    std::error_code ignored;
    fs::remove_all(changeFolder_, ignored);
}

// A process that was killed leaves its change folder. Before there was a journal, nothing of the
// image had changed. After that the published INF decides: with it the package is whole, without it
// an Add did not get to its end or a Remove began, and what is left of the package goes.
void DriverStore::FinishInterruptedChange() const
{
    if (!fs::exists(changeFolder_))
        return;
    std::ifstream journal(changeFolder_ / "journal");
    std::string published;
    std::string folder;
    std::getline(journal, published);
    std::getline(journal, folder);
    if (OemNumber(published) && !fs::exists(PublishedPath(published)))
        ClearRemains(published, folder);
    fs::remove_all(changeFolder_);
}

void DriverStore::ClearRemains(const std::string& published, const std::string& folder) const
{
    if (const auto live = HivePath()) {
        DriverHive hive(*live);
        if (hive.Knows(published)) {
            const fs::path staged = changeFolder_ / "cleared-hive";
            fs::remove(staged);
            hive.Unregister(published);
            hive.Save(staged);
            fs::permissions(staged, fs::status(*live).permissions());
            fs::rename(staged, *live);
        }
    }
    fs::remove(CatalogPath(published));
    fs::remove(PublishedPath(published.substr(0, published.size() - 4) + ".PNF"));
    const fs::path stored = Repository() / folder;
    const auto list = List(true);
    const bool used = std::any_of(list.begin(), list.end(), [&](const PublishedInf& inf) {
        return inf.stored && inf.stored->parent_path() == stored;
    });
    if (!folder.empty() && folder.find('/') == std::string::npos && !used)
        fs::remove_all(stored);
}

} // namespace kestro::servicing
