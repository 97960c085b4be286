// driver_store.h - the driver packages of an offline Windows tree: adds, removes and finds them.
#pragma once

#include "catalog.h"
#include "driver_package.h"
#include "driver_registry.h"
#include "platform_log.h"
#include "repository_index.h"
#include "servicing_error.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kestro::servicing {

class DriverSource;
class ImageHives;
struct ReflectedFile;

// An INF in Windows\INF, whoever put it there.
struct PublishedInf {
    std::string name;           // "oem0.inf"
    std::filesystem::path path; // where it can be read
    bool inBox = false;
    // Its copy in the driver store's repository, where one has the same content or the registry names
    // one: where it can be read, and where it is in the image once everything is saved.
    std::optional<std::filesystem::path> stored;
    std::filesystem::path original;
};

struct AddResult {
    std::string published;
    std::filesystem::path folder; // in the repository
    bool alreadyThere = false;
};

// Failures are thrown as ServicingError. What Add and Remove do is seen by this object's own List and
// Find at once; Save brings all of it into the image, everything or nothing, with each registry hive
// written once. Until then, or until the object goes, nobody else can change the image's drivers.
class DriverStore {
  public:
    explicit DriverStore(std::filesystem::path imageRoot, PlatformLog log = {});
    ~DriverStore();
    DriverStore(const DriverStore&) = delete;
    DriverStore& operator=(const DriverStore&) = delete;

    // A package that is there already is not added twice; what is missing of it is put back.
    AddResult Add(const DriverPackage& package, bool forceUnsigned);
    // `described` is what the package's INF says, where it can be read: it tells what the registry
    // alone does not.
    void Remove(const std::string& published, const DriverPackage* described = nullptr);
    // After a failure nothing of what was to be saved is left.
    void Save();

    // In the order of their names, numbers by value.
    std::vector<PublishedInf> List(bool all) const;
    std::optional<PublishedInf> Find(const std::string& published) const;
    // Looks for the package's catalog among the image's and then in the repository.
    CatalogVerdict Signature(const PublishedInf& inf, const std::string& catalogName) const;

  private:
    struct Change;
    struct Same;

    std::filesystem::path In(const std::string& relative) const;
    std::filesystem::path Repository() const;
    std::filesystem::path PublishedPath(const std::string& published) const;
    std::filesystem::path CatalogPath(const std::string& published) const;
    // Where what will be at a path of the image can be read now; empty if nothing will be there.
    std::filesystem::path Now(const std::filesystem::path& path) const;
    // Names in a folder of the image, as they will be.
    std::set<std::string> NamesIn(const std::filesystem::path& folder) const;
    std::optional<std::string> RegisteredFolder(const std::string& published) const;
    void FindStored(PublishedInf& inf, const RepositoryIndex& repository) const;

    Change& Begin();
    // Runs what changes hives; a failure in the middle spoils what has gathered in them.
    template <class Work>
    void ChangeHives(const Work& work);

    std::set<unsigned> UsedNumbers() const;
    std::string FreeName() const;
    std::optional<Same> FindSame(const DriverSource& source, const std::string& folder) const;
    bool HoldsSame(const DriverSource& source, const std::filesystem::path& folder) const;
    std::optional<std::string> PublishedFor(const std::string& folder,
                                            const std::filesystem::path& inf) const;
    AddResult AddUnlocked(const DriverSource& source, bool forceUnsigned);
    void StageNew(const DriverSource& source, const DriverEntry& entry);
    void StageMissing(const DriverSource& source, const DriverEntry& entry, bool mend);
    void StagePublished(const DriverSource& source, const DriverEntry& entry);
    bool IsInstalled(const DriverEntry& entry) const;
    std::vector<ReflectedFile> FilesToInstall(const DriverEntry& entry);
    void StageReflected(const DriverSource& source, const DriverEntry& entry,
                        const std::vector<ReflectedFile>& files);
    void WarnOfBootFiles(const DriverSource& source, const DriverEntry& entry) const;
    void Register(const DriverEntry& entry, const std::vector<ReflectedFile>& installed);

    void RemoveUnlocked(const std::string& published, const DriverPackage* described);
    bool IsShared(const PublishedInf& inf) const;
    void RemoveReflected(const std::string& published, const DriverPackage* described);
    void UpdateNumbers();

    std::filesystem::path root_;
    PlatformLog log_;
    std::unique_ptr<Change> change_;
};

} // namespace kestro::servicing
