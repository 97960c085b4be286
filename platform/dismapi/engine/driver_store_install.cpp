// driver_store_install.cpp - a package in the registry of an offline Windows tree, and its files where
// Windows loads them from.
#include "authenticode.h"
#include "driver_reflection.h"
#include "driver_source.h"
#include "driver_store_state.h"
#include "reflected_path.h"

#include <algorithm>

namespace fs = std::filesystem;

namespace kestro::servicing {

static fs::path InImage(const fs::path& root, std::string pathOnDrive)
{
    std::replace(pathOnDrive.begin(), pathOnDrive.end(), '\\', '/');
    if (pathOnDrive.find("..") != std::string::npos)
        throw ServicingError(code::invalid_name,
                             "the INF names a file outside its folder: " + pathOnDrive);
    return PathInImage(root, pathOnDrive);
}

// Others wait in the driver store until their device is found.
bool DriverStore::IsInstalled(const DriverEntry& entry) const
{
    return entry.package->bootCritical && change_->hives.System();
}

static bool Differs(const fs::path& now, const fs::path& source)
{
    return now.empty() || !fs::is_regular_file(now) || ReadWholeFile(now) != ReadWholeFile(source);
}

// Without those that the INF wants copied over none, or over one alone. What the package has put there
// before is its own.
std::vector<ReflectedFile> DriverStore::FilesToInstall(const DriverEntry& entry)
{
    constexpr std::uint32_t overNone = 0x10, overOneAlone = 0x400;
    std::vector<ReflectedFile> files;
    if (!IsInstalled(entry))
        return files;
    for (auto& file : DriverReflection::FilesOf(entry)) {
        const auto owners = DriverReflection(change_->hives).OwnersOf(file);
        const bool own = std::any_of(owners.begin(), owners.end(), [&](const std::string& owner) {
            return EqualNames(owner, entry.published);
        });
        const bool there = !Now(InImage(root_, file.path)).empty();
        if (own || !(file.flags & (there ? overNone : overOneAlone)))
            files.push_back(std::move(file));
    }
    return files;
}

void DriverStore::StageReflected(const DriverSource& source, const DriverEntry& entry,
                                 const std::vector<ReflectedFile>& files)
{
    const fs::path folder = source.Package().inf.parent_path();
    for (const auto& file : files) {
        const auto from = FindPath(folder, file.source.Path());
        if (!from)
            throw ServicingError(code::file_not_found,
                                 file.source.Path() + " is missing, which " + file.path + " is");
        const fs::path target = InImage(root_, file.path);
        if (LowerCase(file.source.name).ends_with(".cab"))
            throw ServicingError(code::not_supported,
                                 file.path + " lies in a cabinet, which is not opened");
        const fs::path now = Now(target);
        if (!Differs(now, *from))
            continue;
        if (!now.empty() && DriverReflection(change_->hives).OwnersOf(file).empty())
            log_.Warning(entry.published + ": replaces " + file.path +
                         ", which removing the package does not bring back");
        change_->files.CopyTo(*from, target);
    }
    for (const auto& configuration : entry.package->configurations)
        for (const auto& copy : configuration.copies)
            if (copy.inf.empty() && !HasPlace(copy.destination))
                log_.Warning(entry.published + ": " + copy.target + " is only staged; where " +
                             std::to_string(copy.destination.directory) +
                             " is, its directory, an image does not tell");
    WarnOfBootFiles(source, entry);
}

// A driver that starts with the boot is checked before any catalog can be read.
void DriverStore::WarnOfBootFiles(const DriverSource& source, const DriverEntry& entry) const
{
    for (const auto& configuration : entry.package->configurations)
        for (const auto& service : configuration.services) {
            if (service.start != 0 || !IsKernelDriver(service) || !service.inf.empty())
                continue;
            const std::string path = PathOnDrive(service.binary, entry.folder);
            const fs::path now = path.empty() ? fs::path() : Now(InImage(root_, path));
            if (now.empty())
                log_.Warning(entry.published + ": the service " + service.name +
                             " starts with the boot, and the package has no file " + path);
            else if (!CarriesSignature(now))
                log_.Warning(entry.published + ": " + source.Package().inf.filename().string() +
                             " starts " + path +
                             " with the boot, which has no signature of its own; Windows may "
                             "refuse to load it");
        }
}

void DriverStore::UpdateNumbers()
{
    const auto used = UsedNumbers();
    for (auto& database : change_->Databases())
        database.WriteNumbers(used);
}

// Each hive's database notes when it changed.
template <class Work>
static void Stamped(std::vector<DriverDatabase> databases, const Work& work)
{
    std::vector<unsigned> before;
    for (const auto& database : databases)
        before.push_back(database.Changes());
    work();
    for (std::size_t i = 0; i < databases.size(); ++i)
        if (databases[i].Changes() != before[i])
            databases[i].Stamp();
}

void DriverStore::Register(const DriverEntry& entry, const std::vector<ReflectedFile>& installed)
{
    ImageHives& hives = change_->hives;
    DriverReflection reflection(hives);
    const bool boots = IsInstalled(entry);
    Stamped(change_->Databases(), [&] {
        for (auto& database : change_->Databases()) {
            if (database.IsHomeOf(*entry.package, hives.Drivers() != nullptr,
                                  hives.System() != nullptr))
                database.Register(entry);
            else if (database.Knows(entry.published))
                database.Unregister(entry.published);
        }
        UpdateNumbers();
        if (boots)
            reflection.Write(entry, installed);
        reflection.WriteNewClass(*entry.package);
    });
    for (const auto& setting : reflection.LeftOut())
        log_.Warning(entry.published + ": " + setting +
                     " is not written; Windows may make up for it when it installs the device");
    if (hives.HasDriverDatabase()) {
        if (entry.package->bootCritical && !boots)
            log_.Warning(entry.published + ": the image has no SYSTEM hive; the package is only "
                                           "staged, and not installed for the boot");
        return;
    }
    if (boots)
        reflection.WriteCriticalDevices(entry);
    log_.Warning(
        entry.published +
        (hives.HasRegistry()
             ? ": Windows 7 and earlier keep their list of packages in files of an "
               "unpublished format; the package's files are there, but it is not registered"
             : ": the image has no registry; the package's files are there, but it is not "
               "registered"));
}

// --- away ----------------------------------------------------------------------------------------

void DriverStore::Remove(const std::string& published, const DriverPackage* described)
{
    WithFileErrors([&] {
        if (!LowerCase(published).ends_with(".inf") ||
            published.find_first_of("/\\:") != std::string::npos)
            throw ServicingError(code::invalid_parameter,
                                 "\"" + published + "\" is no published name such as oem0.inf");
        if (!OemNumber(published))
            throw ServicingError(code::not_supported,
                                 published + " came with Windows and cannot be removed");
        Begin();
        RemoveUnlocked(published, described);
    });
}

// Whether another published INF has its files in the same repository folder.
bool DriverStore::IsShared(const PublishedInf& inf) const
{
    const std::string content = ReadWholeFile(inf.path);
    const std::string folder = inf.original.parent_path().filename();
    const fs::path infs = In("Windows/INF");
    for (const auto& name : NamesIn(infs))
        if (OemNumber(name) && !EqualNames(name, inf.name) &&
            (EqualNames(RegisteredFolder(name).value_or(""), folder) ||
             ReadWholeFile(Now(infs / name)) == content))
            return true;
    return false;
}

void DriverStore::RemoveUnlocked(const std::string& published, const DriverPackage* described)
{
    using Order = ImageChange::Order;
    const auto found = Find(published);
    if (!found)
        throw ServicingError(code::file_not_found, published + " is not in the image");
    const bool takeFolder = found->stored && !IsShared(*found);
    ImageChange& files = change_->files;
    ChangeHives([&] {
        RemoveReflected(found->name, described);
        Stamped(change_->Databases(), [&] {
            for (auto& database : change_->Databases())
                database.Unregister(found->name);
            files.Remove(PublishedPath(found->name), Order::PublishedAway);
            UpdateNumbers();
        });
    });
    files.Remove(CatalogPath(found->name));
    files.Remove(PublishedPath(found->name.substr(0, found->name.size() - 4) + ".PNF"));
    if (takeFolder)
        files.Remove(found->original.parent_path());
}

} // namespace kestro::servicing
