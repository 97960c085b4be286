// inf_models.cpp - which devices an INF is for on the image's Windows.
#include "inf_models.h"

#include "inf_configuration.h"
#include "inf_decoration.h"

#include <algorithm>

namespace kestro::servicing {
namespace {

// One of the models sections of a manufacturer.
struct ModelsSection {
    std::string name;
    Decoration decoration;
};

struct Manufacturer {
    InfField name;
    std::vector<ModelsSection> sections;
};

Manufacturer ManufacturerOf(const InfLine& line)
{
    Manufacturer manufacturer;
    manufacturer.name = line.key;
    manufacturer.sections.push_back({line.Value(0), *ParseDecoration("")});
    for (std::size_t i = 1; i < line.values.size(); ++i)
        if (const auto decoration = ParseDecoration(line.Value(i));
            decoration && !line.Value(i).empty())
            manufacturer.sections.push_back({line.Value(0) + "." + line.Value(i), *decoration});
    return manufacturer;
}

// The text with its tokens in lower case, as the driver database has it.
std::string WithLowerCaseTokens(const InfField& field)
{
    std::string text = field.written;
    for (auto open = text.find('%'); open != std::string::npos;) {
        const auto close = text.find('%', open + 1);
        if (close == std::string::npos)
            break;
        text.replace(open, close - open, LowerCase(text.substr(open, close - open)));
        open = text.find('%', close + 1);
    }
    return text;
}

class ModelsReader {
  public:
    ModelsReader(InfReader& reader, const ImageWindows& windows)
        : reader_(reader), windows_(windows)
    {
    }

    InfModels Read()
    {
        std::vector<Manufacturer> manufacturers;
        for (const auto& placed : reader_.Section("Manufacturer"))
            manufacturers.push_back(ManufacturerOf(placed.line));
        for (const auto& manufacturer : manufacturers)
            ReadFitting(manufacturer);
        if (!result_.models.empty())
            result_.fit = Fit::Applies;
        else
            for (const auto& manufacturer : manufacturers)
                ReadOthers(manufacturer);
        return std::move(result_);
    }

  private:
    // An empty section that fits best says that there is nothing for this Windows.
    void ReadFitting(const Manufacturer& manufacturer)
    {
        const ModelsSection* best = nullptr;
        for (const auto& section : manufacturer.sections) {
            if (!section.decoration.FitsArchitecture(windows_.architecture) ||
                !section.decoration.FitsVersion(windows_))
                continue;
            if (!best || best->decoration.IsLessExactThan(section.decoration))
                best = &section;
        }
        if (!best || !Add(manufacturer, *best, windows_.architecture))
            return;
        const std::uint32_t floor = best->decoration.Floor();
        result_.osVersionFloor = chosen_ ? std::min(result_.osVersionFloor, floor) : floor;
        chosen_ = true;
    }

    void ReadOthers(const Manufacturer& manufacturer)
    {
        for (const auto& section : manufacturer.sections) {
            const auto& decoration = section.decoration;
            const bool any = Add(manufacturer, section, ArchitectureOf(decoration));
            const bool empty = !any && !decoration.undecorated && reader_.Inf().Has(section.name);
            if (decoration.FitsArchitecture(windows_.architecture) && (any || empty))
                result_.fit = Fit::OtherWindows;
            else if (any && result_.fit == Fit::NothingToInstall)
                result_.fit = Fit::OtherArchitecture;
        }
    }

    Architecture ArchitectureOf(const Decoration& decoration) const
    {
        for (const auto other : {Architecture::X86, Architecture::Arm, Architecture::Arm64})
            if (decoration.architecture == ArchitectureName(other))
                return other;
        return decoration.architecture.empty() ? windows_.architecture : Architecture::Amd64;
    }

    // True if the section has a model.
    bool Add(const Manufacturer& manufacturer, const ModelsSection& section,
             Architecture architecture)
    {
        const auto lines = reader_.Section(section.name);
        const std::string maker = WithLowerCaseTokens(manufacturer.name);
        for (const auto& [inf, line] : lines) {
            DriverModel model;
            model.architecture = section.decoration.architecture;
            model.manufacturer = manufacturer.name.text;
            model.manufacturerToken = maker;
            model.description = line.Key();
            model.descriptionToken = WithLowerCaseTokens(line.key);
            model.installSection = SectionToInstall(reader_.Inf(), line.Value(0), architecture);
            model.hardwareId = line.Value(1);
            for (std::size_t i = 2; i < line.values.size(); ++i)
                if (!line.Value(i).empty())
                    model.compatibleIds.push_back(line.Value(i));
            result_.models.push_back(std::move(model));
        }
        return !lines.empty();
    }

    InfReader& reader_;
    const ImageWindows& windows_;
    InfModels result_;
    bool chosen_ = false;
};

} // namespace

InfModels ReadModels(InfReader& reader, const ImageWindows& windows)
{
    return ModelsReader(reader, windows).Read();
}

} // namespace kestro::servicing
