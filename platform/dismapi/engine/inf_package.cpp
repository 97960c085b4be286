// inf_package.cpp - reads what the driver store needs out of an INF.
#include "inf_package.h"

#include "inf_models.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace kestro::servicing {

// A folder as INFs write it ("\x64", ".\amd64\") with '/' and without the parts that say nothing.
static std::string Folder(const std::string& text)
{
    std::string folder;
    std::string part;
    for (const char c : text + "/") {
        if (c != '\\' && c != '/') {
            part += c;
            continue;
        }
        if (!part.empty() && part != ".")
            folder += (folder.empty() ? "" : "/") + part;
        part.clear();
    }
    return folder;
}

static std::string Join(const std::string& left, const std::string& right)
{
    return left.empty() || right.empty() ? left + right : left + "/" + right;
}

// The lines of a section and of its variant for the architecture, the variant's first: it wins.
static std::vector<InfLine> WithVariant(const InfSections& inf, const std::string& section,
                                        const std::string& architecture)
{
    auto lines = inf.Section(section + "." + architecture);
    const auto general = inf.Section(section);
    lines.insert(lines.end(), general.begin(), general.end());
    return lines;
}

static SourceFile SourceOf(const InfSections& inf, const InfLine& file,
                           const std::string& architecture)
{
    for (const auto& disk : WithVariant(inf, "SourceDisksNames", architecture)) {
        if (disk.key != file.Value(0))
            continue;
        const std::string cabinet = disk.Value(1);
        if (LowerCase(cabinet).ends_with(".cab"))
            return {Folder(disk.Value(3)), cabinet};
        return {Join(Folder(disk.Value(3)), Folder(file.Value(1))), file.key};
    }
    return {Folder(file.Value(1)), file.key};
}

// Names of files that the package's CopyFiles directives take from its source.
static std::vector<std::string> CopiedFiles(const InfSections& inf, const std::string& section)
{
    std::vector<std::string> files;
    for (const auto& directive : inf.Section(section)) {
        if (!EqualNames(directive.key, "CopyFiles"))
            continue;
        for (const auto& list : directive.values) {
            if (list.starts_with("@")) {
                files.push_back(list.substr(1));
                continue;
            }
            for (const auto& line : inf.Section(list))
                files.push_back(line.Value(1).empty() ? line.Value(0) : line.Value(1));
        }
    }
    return files;
}

static void ReadFiles(const InfSections& inf, const std::string& architecture,
                      DriverPackage& package)
{
    std::set<std::string> known;
    for (const auto& line : WithVariant(inf, "SourceDisksFiles", architecture))
        if (known.insert(LowerCase(line.key)).second)
            package.files.push_back(SourceOf(inf, line, architecture));

    // With a layout file, Windows itself brings what the INF does not list.
    if (!inf.Value("Version", "LayoutFile").empty())
        return;
    std::set<std::string> sections;
    for (const auto& model : package.models)
        sections.insert(model.installSection);
    for (const char* section : {"DefaultInstall", "ClassInstall32"})
        sections.insert(SectionToInstall(inf, section, architecture));
    for (const auto& section : sections)
        for (const auto& part : {section, section + ".CoInstallers"})
            for (const auto& name : CopiedFiles(inf, part))
                if (!name.empty() && known.insert(LowerCase(name)).second)
                    package.files.push_back({"", name});
}

static void ReadDriverVer(const InfSections& inf, DriverPackage& package)
{
    for (const auto& line : inf.Section("Version")) {
        if (!EqualNames(line.key, "DriverVer"))
            continue;
        unsigned month = 0, day = 0, year = 0;
        if (std::sscanf(line.Value(0).c_str(), "%u/%u/%u", &month, &day, &year) == 3 &&
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

static std::string Catalog(const InfSections& inf, const std::string& architecture)
{
    for (const auto& key : {"CatalogFile.NT" + architecture, std::string("CatalogFile.NT"),
                            std::string("CatalogFile")})
        if (const auto name = inf.Value("Version", key); !name.empty())
            return name;
    return {};
}

// A new class describes itself: the default value of its key.
static std::string ClassDescription(const InfSections& inf, const std::string& architecture)
{
    const auto section = SectionToInstall(inf, "ClassInstall32", architecture);
    for (const auto& directive : inf.Section(section)) {
        if (!EqualNames(directive.key, "AddReg"))
            continue;
        for (const auto& list : directive.values)
            for (const auto& line : inf.Section(list))
                if (EqualNames(line.Value(0), "HKR") && line.Value(1).empty() &&
                    line.Value(2).empty() && !line.Value(4).empty())
                    return line.Value(4);
    }
    return {};
}

// Classes that Windows needs before its system disk is there: disks, their controllers and the
// buses that these hang on.
static bool IsBootClass(const std::string& guid)
{
    for (const char* boot : {
             "{4d36e967-e325-11ce-bfc1-08002be10318}", // DiskDrive
             "{4d36e96a-e325-11ce-bfc1-08002be10318}", // HDC
             "{4d36e97b-e325-11ce-bfc1-08002be10318}", // SCSIAdapter
             "{4d36e97d-e325-11ce-bfc1-08002be10318}", // System
             "{71a27cdd-812a-11d0-bec7-08002be2092f}", // Volume
             "{a0a588a4-c46f-4b37-b7ea-c82fe89870c6}", // SDHost
         })
        if (EqualNames(guid, boot))
            return true;
    return false;
}

static bool StartsAtBoot(const InfSections& inf, const DriverPackage& package)
{
    std::set<std::string> sections;
    for (const auto& model : package.models)
        sections.insert(model.installSection);
    for (const auto& section : sections)
        for (const auto& line : inf.Section(section + ".Services")) {
            const std::string start =
                EqualNames(line.key, "AddService") ? inf.Value(line.Value(2), "StartType") : "";
            if (!start.empty() && std::strtoul(start.c_str(), nullptr, 0) == 0)
                return true;
        }
    return false;
}

DriverPackage ReadPackage(const InfSections& inf, Architecture architecture)
{
    const std::string name = ArchitectureName(architecture);
    DriverPackage package;
    package.className = inf.Value("Version", "Class");
    package.classGuid = inf.Value("Version", "ClassGuid");
    package.provider = inf.Value("Version", "Provider");
    package.catalog = Catalog(inf, name);
    package.classDescription = ClassDescription(inf, name);
    if (package.classDescription.empty())
        package.classDescription = package.className;
    ReadDriverVer(inf, package);
    package.models = ReadModels(inf, name, package.applies);
    // Without devices an INF can still install something of its own accord.
    const auto defaultInstall = SectionToInstall(inf, "DefaultInstall", name);
    if (package.models.empty())
        package.applies = inf.Has(defaultInstall);
    ReadFiles(inf, name, package);
    package.bootCritical = inf.Value("Version", "BootCritical") == "1" ||
                           (IsBootClass(package.classGuid) && StartsAtBoot(inf, package));
    for (const auto& line : inf.Section("ControlFlags"))
        if (EqualNames(line.key, "ExcludeFromSelect"))
            for (const auto& id : line.values)
                if (id != "*")
                    package.excludedIds.push_back(id);
    for (const auto& line : inf.Section("Strings"))
        if (!line.key.empty())
            package.strings[line.key] = line.Value(0);
    return package;
}

} // namespace kestro::servicing
