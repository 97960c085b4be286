// driver_store_change.cpp - adds driver packages to an offline Windows tree, and saves what changed.
#include "driver_reflection.h"
#include "driver_source.h"
#include "driver_store_state.h"
#include "registry_directories.h"

namespace fs = std::filesystem;

namespace kestro::servicing {

DriverStore::Change& DriverStore::Begin()
{
    if (!change_)
        change_ = std::make_unique<Change>(root_, In("Windows"),
                                           In("Windows/System32/DriverStore/kestro-change"));
    if (change_->spoiled)
        throw ServicingError(code::bad_hive, "an earlier failure spoiled this session's changes");
    return *change_;
}

void DriverStore::Save()
{
    WithFileErrors([&] {
        const auto change = std::move(change_);
        if (!change)
            return;
        if (change->spoiled)
            throw ServicingError(code::bad_hive,
                                 "an earlier failure spoiled the changes; none of them is saved");
        change->hives.Stage(change->files);
        change->files.Commit();
    });
}

std::set<unsigned> DriverStore::UsedNumbers() const
{
    std::set<unsigned> used;
    const auto note = [&](const std::string& name) {
        if (const auto number = OemNumber(name))
            used.insert(*number);
    };
    for (const auto& name : NamesIn(In("Windows/INF")))
        note(name);
    for (const auto& database : change_->Databases())
        for (const auto& name : database.Published())
            note(name);
    return used;
}

// The lowest number that neither a file nor the registry uses.
std::string DriverStore::FreeName() const
{
    const auto used = UsedNumbers();
    for (unsigned number = 0;; ++number) {
        std::string name = "oem" + std::to_string(number) + ".inf";
        if (!used.contains(number) && Now(CatalogPath(name)).empty())
            return name;
    }
}

AddResult DriverStore::Add(const DriverPackage& package, bool forceUnsigned)
{
    return WithFileErrors([&] {
        const DriverSource source(package);
        Begin();
        return AddUnlocked(source, forceUnsigned);
    });
}

static DriverEntry EntryOf(const DriverSource& source, const ImageWindows& windows,
                           const CatalogVerdict& verdict)
{
    DriverEntry entry;
    entry.package = &source.Package();
    entry.windows = &windows;
    entry.storedInf = source.StoredInf();
    entry.size = source.Size();
    entry.signer = verdict.signer;
    entry.signerScore = verdict.signerScore;
    entry.catalogAttributes = verdict.attributes;
    entry.submissionId = verdict.submissionId;
    return entry;
}

AddResult DriverStore::AddUnlocked(const DriverSource& source, bool forceUnsigned)
{
    Change& change = *change_;
    DriverEntry entry =
        EntryOf(source, change.windows, source.CheckSignature(change.windows, forceUnsigned));
    const bool registered = change.hives.HasDriverDatabase() || !change.hives.HasRegistry();
    const std::string ownFolder = entry.storedInf + "_" +
                                  ArchitectureName(change.windows.architecture) +
                                  (registered ? "_" : "_neutral_") + source.Hash();
    const auto same = FindSame(source, ownFolder);
    entry.published = same ? same->published : FreeName();
    entry.folder = same ? same->folder : ownFolder;
    const DriverPackage package = WithDirectories(source.Package(), entry.folder);
    entry.package = &package;
    if (same)
        StageMissing(source, entry, entry.folder == ownFolder);
    else
        StageNew(source, entry);
    StagePublished(source, entry);
    const auto installed = FilesToInstall(entry);
    if (IsInstalled(entry))
        StageReflected(source, entry, installed);
    ChangeHives([&] { Register(entry, installed); });
    return {entry.published, Repository() / entry.folder, same.has_value()};
}

// The whole folder is made aside and comes into the repository at once.
void DriverStore::StageNew(const DriverSource& source, const DriverEntry& entry)
{
    const fs::path folder = change_->files.NewPath();
    try {
        fs::create_directory(folder);
        for (const auto& file : source.Files()) {
            const fs::path to = PathInImage(folder, file.path);
            fs::create_directories(to.parent_path());
            CopyFile(file.source, to);
        }
    } catch (...) {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
        throw;
    }
    change_->files.Place(folder, Repository() / entry.folder);
}

static bool SameContent(const fs::path& left, const fs::path& right)
{
    return fs::is_regular_file(left) && fs::file_size(left) == fs::file_size(right) &&
           ReadWholeFile(left) == ReadWholeFile(right);
}

// `mend` also replaces files that are not what they were.
void DriverStore::StageMissing(const DriverSource& source, const DriverEntry& entry, bool mend)
{
    for (const auto& file : source.Files()) {
        const fs::path target = PathInImage(Repository(), entry.folder + "/" + file.path);
        const fs::path now = Now(target);
        if (now.empty() || (mend && !SameContent(now, file.source)))
            change_->files.CopyTo(file.source, target);
    }
}

void DriverStore::StagePublished(const DriverSource& source, const DriverEntry& entry)
{
    const fs::path inf = PublishedPath(entry.published);
    const fs::path catalog = CatalogPath(entry.published);
    if (Now(inf).empty())
        change_->files.CopyTo(source.Package().inf, inf, ImageChange::Order::Published);
    if (source.Catalog() && Now(catalog).empty())
        change_->files.CopyTo(*source.Catalog(), catalog);
}

// --- the package that is there already -----------------------------------------------------------------

// Whether a folder of the repository holds the package: its INF, and no file that is another one.
bool DriverStore::HoldsSame(const DriverSource& source, const fs::path& folder) const
{
    const fs::path readable = Now(folder);
    const auto inf = readable.empty() ? std::nullopt : FindPath(readable, source.StoredInf());
    if (!inf || !SameContent(*inf, source.Package().inf))
        return false;
    for (const auto& file : source.Files()) {
        const fs::path now = Now(PathInImage(folder, file.path));
        if (!now.empty() && !SameContent(now, file.source))
            return false;
    }
    return true;
}

// Who published a folder: the registry tells, or an INF with the same content.
std::optional<std::string> DriverStore::PublishedFor(const std::string& folder,
                                                     const fs::path& inf) const
{
    for (const auto& database : change_->Databases())
        if (auto published = database.PublishedOf(folder))
            return published;
    const fs::path infs = In("Windows/INF");
    for (const auto& name : NamesIn(infs))
        if (OemNumber(name) && SameContent(Now(infs / name), inf))
            return name;
    return std::nullopt;
}

std::optional<DriverStore::Same> DriverStore::FindSame(const DriverSource& source,
                                                       const std::string& folder) const
{
    const fs::path& inf = source.Package().inf;
    if (const auto published = PublishedFor(folder, inf);
        published && (!Now(Repository() / folder).empty() ||
                      RegisteredFolder(*published).value_or("") == folder))
        return Same{*published, folder};
    for (const auto& name : NamesIn(Repository()))
        if (LowerCase(name).starts_with(source.StoredInf() + "_") &&
            HoldsSame(source, Repository() / name))
            if (const auto published = PublishedFor(name, inf))
                return Same{*published, name};
    return std::nullopt;
}

} // namespace kestro::servicing
