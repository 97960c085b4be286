// inf_configuration.cpp - what an install section of an INF does.
#include "inf_configuration.h"

#include "inf_copies.h"
#include "inf_number.h"
#include "inf_registry.h"
#include "inf_services.h"

#include <algorithm>

namespace kestro::servicing {

std::string SectionToInstall(const InfFile& inf, const std::string& section,
                             Architecture architecture)
{
    for (const auto& name : {section + ".NT" + ArchitectureName(architecture), section + ".NT"})
        if (inf.Has(name))
            return name;
    return section;
}

static std::uint8_t FeatureScore(const PlacedLines& section)
{
    for (const auto& [inf, line] : section) {
        std::uint32_t score = 0;
        std::string digits = LowerCase(line.Value(0));
        if (digits.starts_with("0x"))
            digits.erase(0, 2);
        if (EqualNames(line.Key(), "FeatureScore") && IsNumber(digits, 16, score) && score <= 0xFF)
            return static_cast<std::uint8_t>(score);
    }
    return 0xFF;
}

static std::vector<KmdfService> KmdfServices(InfReader& reader, const PlacedLines& wdf)
{
    std::vector<KmdfService> services;
    for (const auto& [inf, line] : wdf) {
        // A service of an included INF has its version from there.
        if (!EqualNames(line.Key(), "KmdfService") || line.Value(0).empty() || inf != &reader.Inf())
            continue;
        for (const auto& placed : reader.Named(*inf, line.Value(1)))
            if (EqualNames(placed.line.Key(), "KmdfLibraryVersion"))
                services.push_back({line.Value(0), placed.line.Value(0)});
    }
    return services;
}

// The framework's co-installer is no more than a file to Windows.
static bool IsCoInstaller(const std::string& dll)
{
    return !dll.empty() && !LowerCase(dll).starts_with("wdfcoinstaller");
}

static bool NamesCoInstaller(InfReader& reader, const PlacedLines& section)
{
    for (const auto& [inf, line] : reader.Listed(section, "AddReg"))
        if (EqualNames(line.Value(2), "CoInstallers32"))
            for (std::size_t i = 4; i < line.values.size(); ++i)
                if (IsCoInstaller(line.Value(i)))
                    return true;
    return false;
}

static void ReadCoInstallers(InfReader& reader, const std::string& section,
                             const InfSourceFiles& sources, Configuration& configuration)
{
    const auto lines = reader.Section(section);
    for (auto& copy : ReadCopies(reader, lines, sources)) {
        copy.ofCoInstaller = true;
        if (LowerCase(copy.target).ends_with(".dll") && IsCoInstaller(copy.target))
            configuration.hasCoInstaller = true;
        configuration.copies.push_back(std::move(copy));
    }
    if (NamesCoInstaller(reader, lines))
        configuration.hasCoInstaller = true;
}

static std::vector<std::string> LeftOut(InfReader& reader, const std::string& section)
{
    std::vector<std::string> words;
    const auto note = [&](const char* ending, const char* directive, const std::string& word) {
        for (const auto& [inf, line] : reader.Section(section + ending))
            if (EqualNames(line.Key(), directive) && inf == &reader.Inf())
                words.push_back(word + line.Value(0));
    };
    note(".Services", "DelService", "the removal of the service ");
    note(".Wdf", "UmdfService", "the user-mode driver ");
    return words;
}

Configuration ReadConfiguration(InfReader& reader, const std::string& section,
                                const InfSourceFiles& sources)
{
    Configuration configuration;
    configuration.section = section;
    const auto install = reader.Section(section);
    configuration.featureScore = FeatureScore(install);
    configuration.copies = ReadCopies(reader, install, sources);
    ReadCoInstallers(reader, section + ".CoInstallers", sources, configuration);
    configuration.hasHardware = reader.Inf().Has(section + ".HW");
    configuration.deviceSettings = ReadSettings(reader, reader.Section(section + ".HW"));
    configuration.hasWdf = reader.Inf().Has(section + ".Wdf");
    configuration.kmdfServices = KmdfServices(reader, reader.Section(section + ".Wdf"));
    configuration.services = ReadServices(reader, reader.Section(section + ".Services"));
    configuration.leftOut = LeftOut(reader, section);
    for (const auto& service : configuration.services)
        if (service.flags & kAssociatedService)
            configuration.service = service.name;
    return configuration;
}

} // namespace kestro::servicing
