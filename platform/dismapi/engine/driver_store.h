// driver_store.h - the driver packages of an offline Windows tree: adds, removes and finds them.
#pragma once

#include "catalog.h"
#include "driver_hive.h"
#include "driver_package.h"
#include "image_change.h"
#include "servicing_error.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

// An INF in Windows\INF, whoever put it there.
struct PublishedInf {
    std::string name; // "oem0.inf"
    std::filesystem::path path;
    bool inBox = false;
    // Its copy in the driver store's repository, where one has the same content or the registry
    // names one.
    std::optional<std::filesystem::path> stored;
};

struct AddResult {
    std::string published;
    std::filesystem::path folder; // in the repository
    bool alreadyThere = false;
};

// Failures are thrown as ServicingError. Add and Remove change everything or nothing: the INF in
// Windows\INF is what makes a package exist, so it appears last and disappears first. What a killed
// process left behind is cleared by the next Add or Remove.
class DriverStore {
  public:
    explicit DriverStore(std::filesystem::path imageRoot);

    AddResult Add(const DriverPackage& package, bool forceUnsigned);
    void Remove(const std::string& published);

    // In the order of their names, numbers by value.
    std::vector<PublishedInf> List(bool all) const;
    std::optional<PublishedInf> Find(const std::string& published) const;
    // Looks for the package's catalog among the image's and then in the repository.
    CatalogVerdict Signature(const PublishedInf& inf, const std::string& catalogName) const;

  private:
    struct Staged;

    std::filesystem::path In(const std::string& relative) const;
    std::filesystem::path Repository() const;
    std::filesystem::path PublishedPath(const std::string& published) const;
    std::filesystem::path CatalogPath(const std::string& published) const;
    std::optional<std::filesystem::path> HivePath() const;
    std::string FreeName(const std::optional<DriverHive>& hive) const;
    bool IsShared(const PublishedInf& inf) const;

    AddResult AddUnlocked(const DriverPackage& package, bool forceUnsigned);
    void RemoveUnlocked(const std::string& published);
    void Stage(ImageChange& change, const DriverPackage& package, const Staged& staged) const;
    void Publish(ImageChange& change, const Staged& staged) const;
    void StageHive(ImageChange& change, DriverHive& hive) const;
    void WriteJournal(ImageChange& change, const std::string& published,
                      const std::string& folder) const;
    void FinishInterruptedChange() const;
    void ClearRemains(const std::string& published, const std::string& folder) const;

    std::filesystem::path root_;
    std::filesystem::path changeFolder_;
};

} // namespace kestro::servicing
