// inf_package.cpp - reads what the driver store needs out of an INF.
#include "inf_package.h"

#include "inf_configuration.h"
#include "inf_copies.h"
#include "inf_models.h"
#include "inf_number.h"
#include "inf_registry.h"
#include "inf_source_files.h"

#include <cstdio>
#include <set>

namespace kestro::servicing {

static void ReadDriverVer(const InfFile& inf, DriverPackage& package)
{
    for (const auto& line : inf.Section("Version")) {
        if (!EqualNames(line.Key(), "DriverVer"))
            continue;
        unsigned month = 0, day = 0, year = 0;
        if (std::sscanf(line.Value(0).c_str(), "%u%*[/-]%u%*[/-]%u", &month, &day, &year) == 3 &&
            month >= 1 && month <= 12 && day >= 1 && day <= 31 && year >= 1601 && year <= 9999)
            package.date = {static_cast<std::uint16_t>(year), static_cast<std::uint16_t>(month),
                            static_cast<std::uint16_t>(day)};
        unsigned part[4] = {};
        if (std::sscanf(line.Value(1).c_str(), "%u.%u.%u.%u", &part[0], &part[1], &part[2],
                        &part[3]) >= 1)
            for (std::size_t i = 0; i < 4; ++i)
                package.version[i] = static_cast<std::uint16_t>(part[i]);
        return;
    }
}

static std::string Catalog(const InfFile& inf, Architecture architecture)
{
    for (const auto& key : {std::string("CatalogFile.NT") + ArchitectureName(architecture),
                            std::string("CatalogFile.NT"), std::string("CatalogFile")})
        if (const auto name = inf.Value("Version", key); !name.empty())
            return name;
    return {};
}

static void ReadVersion(const InfFile& inf, const ImageWindows& windows, DriverPackage& package)
{
    package.className = inf.Value("Version", "Class");
    package.classGuid = inf.Value("Version", "ClassGuid");
    package.provider = inf.Value("Version", "Provider");
    package.catalog = Catalog(inf, windows.architecture);
    package.pnpLockdown = InfNumber(inf.Value("Version", "PnpLockdown")) != 0;
    package.extensionId = inf.Value("Version", "ExtensionId");
    package.bootCritical = windows.IsBootCritical(package.classGuid);
    ReadDriverVer(inf, package);
}

// A new class describes itself: the default value of its key.
static void ReadClass(InfReader& reader, Architecture architecture, DriverPackage& package)
{
    const auto section =
        reader.Section(SectionToInstall(reader.Inf(), "ClassInstall32", architecture));
    package.classSettings = ReadSettings(reader, section);
    package.classDescription = package.className;
    for (const auto& [inf, line] : reader.Listed(section, "AddReg"))
        if (EqualNames(line.Value(0), "HKR") && line.Value(1).empty() && line.Value(2).empty() &&
            !line.Value(4).empty())
            package.classDescription = line.Value(4);
}

// The device's own service, else the first that the section adds.
static std::string ServiceOf(const Configuration& configuration)
{
    if (!configuration.service.empty() || configuration.services.empty())
        return configuration.service;
    return configuration.services.front().name;
}

static void ReadConfigurations(InfReader& reader, const InfSourceFiles& sources,
                               DriverPackage& package)
{
    std::map<std::string, std::size_t> known;
    for (auto& model : package.models) {
        const auto [place, isNew] =
            known.emplace(LowerCase(model.installSection), package.configurations.size());
        if (isNew)
            package.configurations.push_back(
                ReadConfiguration(reader, model.installSection, sources));
        const Configuration& configuration = package.configurations[place->second];
        model.installSection = configuration.section;
        model.service = ServiceOf(configuration);
        model.featureScore = configuration.featureScore;
    }
}

static void ReadFiles(InfReader& reader, const InfSourceFiles& sources, Architecture architecture,
                      DriverPackage& package)
{
    package.files = sources.All();
    // With a layout file, Windows itself brings what the INF does not list.
    if (!reader.Inf().Value("Version", "LayoutFile").empty())
        return;
    std::set<std::string> known;
    const auto add = [&](const FileCopy& copy) {
        if (copy.inf.empty() && !sources.Lists(copy.source.name) &&
            known.insert(LowerCase(copy.source.name)).second)
            package.files.push_back(copy.source);
    };
    for (const auto& configuration : package.configurations)
        for (const auto& copy : configuration.copies)
            add(copy);
    for (const char* name : {"DefaultInstall", "ClassInstall32"}) {
        const auto section = reader.Section(SectionToInstall(reader.Inf(), name, architecture));
        for (const auto& copy : ReadCopies(reader, section, sources))
            add(copy);
    }
}

// The strings that the models' texts use.
static void ReadModelStrings(const InfFile& inf, DriverPackage& package)
{
    std::set<std::string> texts;
    for (const auto& model : package.models)
        for (const auto& text : {model.manufacturerToken, model.descriptionToken})
            if (text.find('%') != std::string::npos)
                texts.insert(text);
    for (const auto& text : texts)
        for (auto open = text.find('%'); open != std::string::npos;) {
            const auto close = text.find('%', open + 1);
            if (close == std::string::npos)
                break;
            const auto string = inf.Strings().find(text.substr(open + 1, close - open - 1));
            if (string != inf.Strings().end())
                package.modelStrings.insert(*string);
            open = text.find('%', close + 1);
        }
}

DriverPackage ReadPackage(const InfFile& inf, const ImageWindows& windows, InfLibrary& library)
{
    DriverPackage package;
    InfReader reader(inf, library);
    const InfSourceFiles sources(inf, windows.architecture);
    ReadVersion(inf, windows, package);
    ReadClass(reader, windows.architecture, package);
    auto models = ReadModels(reader, windows);
    package.fit = models.fit;
    package.osVersionFloor = models.osVersionFloor;
    package.models = std::move(models.models);
    // Without devices an INF can still install something of its own accord.
    if (package.models.empty() &&
        inf.Has(SectionToInstall(inf, "DefaultInstall", windows.architecture)))
        package.fit = Fit::Applies;
    package.applies = package.fit == Fit::Applies;
    ReadConfigurations(reader, sources, package);
    ReadFiles(reader, sources, windows.architecture, package);
    ReadModelStrings(inf, package);
    if (!package.applies)
        package.configurations.clear();
    for (const auto& line : inf.Section("ControlFlags"))
        if (EqualNames(line.Key(), "ExcludeFromSelect"))
            for (const auto& [written, id] : line.values)
                if (id != "*")
                    package.excludedIds.push_back(id);
    package.strings = inf.Strings();
    return package;
}

const ImageWindows& PackageReader::Windows()
{
    if (!windows_)
        windows_ = ReadImageWindows(root_);
    return *windows_;
}

DriverPackage PackageReader::Read(const std::filesystem::path& inf)
{
    const ImageWindows& windows = Windows();
    if (!library_)
        library_.emplace(root_, windows.language);
    DriverPackage package = ReadPackage(InfFile::Open(inf, windows.language), windows, *library_);
    package.inf = inf;
    return package;
}

} // namespace kestro::servicing
