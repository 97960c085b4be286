// inf_models.cpp - which devices an INF is for, and which of its sections install them.
#include "inf_models.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <tuple>

namespace kestro::servicing {

Decoration ParseDecoration(const std::string& text)
{
    std::vector<std::string> parts{""};
    for (const char c : text) {
        if (c == '.')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    const auto number = [&](std::size_t index) {
        return index < parts.size()
                   ? static_cast<unsigned>(std::strtoul(parts[index].c_str(), nullptr, 10))
                   : 0u;
    };
    Decoration decoration;
    // What is no decoration that Windows knows fits nothing.
    decoration.architecture =
        LowerCase(parts[0]).starts_with("nt") ? LowerCase(parts[0].substr(2)) : std::string("?");
    decoration.major = number(1);
    decoration.minor = number(2);
    decoration.build = number(5);
    return decoration;
}

static bool LessExact(const Decoration& left, const Decoration& right)
{
    const auto rank = [](const Decoration& one) {
        return std::tuple(!one.architecture.empty(), one.major, one.minor, one.build);
    };
    return rank(left) < rank(right);
}

std::string SectionToInstall(const InfSections& inf, const std::string& section,
                             const std::string& architecture)
{
    std::optional<Decoration> best;
    std::string chosen = section;
    const std::string prefix = LowerCase(section) + ".nt";
    for (const auto& name : inf.Names()) {
        if (!LowerCase(name).starts_with(prefix))
            continue;
        const std::string text = name.substr(section.size() + 1);
        // "Install.NTamd64.Services" belongs to "Install.NTamd64" and is no variant of "Install".
        const auto dot = text.find('.');
        if (dot != std::string::npos &&
            text.find_first_not_of("0123456789.", dot) != std::string::npos)
            continue;
        const Decoration decoration = ParseDecoration(text);
        if (decoration.Fits(architecture) && (!best || LessExact(*best, decoration))) {
            best = decoration;
            chosen = name;
        }
    }
    return chosen;
}

// The service that the section makes the device's own, else the first that it adds.
static std::string ServiceOf(const InfSections& inf, const std::string& installSection)
{
    constexpr unsigned long associated = 2;
    std::string first;
    for (const auto& line : inf.Section(installSection + ".Services")) {
        if (!EqualNames(line.key, "AddService") || line.Value(0).empty())
            continue;
        if (std::strtoul(line.Value(1).c_str(), nullptr, 0) & associated)
            return line.Value(0);
        if (first.empty())
            first = line.Value(0);
    }
    return first;
}

static void ReadModelsSection(const InfSections& inf, const std::string& section,
                              const std::string& manufacturer, const std::string& decorated,
                              const std::string& architecture, std::vector<DriverModel>& models)
{
    for (const auto& line : inf.Section(section)) {
        DriverModel model;
        model.architecture = decorated;
        model.manufacturer = manufacturer;
        model.description = line.key;
        model.installSection = SectionToInstall(inf, line.Value(0), architecture);
        model.hardwareId = line.Value(1);
        for (std::size_t i = 2; i < line.values.size(); ++i)
            if (!line.values[i].empty())
                model.compatibleIds.push_back(line.values[i]);
        model.service = ServiceOf(inf, model.installSection);
        models.push_back(std::move(model));
    }
}

// The models section of one [Manufacturer] line for the architecture; nothing if none fits.
static std::optional<std::string> FittingSection(const InfSections& inf, const InfLine& line,
                                                 const std::string& architecture,
                                                 std::string& decorated)
{
    std::optional<Decoration> best;
    std::optional<std::string> section;
    for (std::size_t i = 1; i < line.values.size(); ++i) {
        const Decoration decoration = ParseDecoration(line.values[i]);
        const std::string name = line.Value(0) + "." + line.values[i];
        if (decoration.Fits(architecture) && inf.Has(name) &&
            (!best || LessExact(*best, decoration))) {
            best = decoration;
            section = name;
        }
    }
    decorated = best ? best->architecture : "";
    if (!section && inf.Has(line.Value(0)))
        section = line.Value(0);
    return section;
}

static void ReadOtherModels(const InfSections& inf, const InfLine& line,
                            std::vector<DriverModel>& models)
{
    for (std::size_t i = 1; i < line.values.size(); ++i) {
        const std::string other = ParseDecoration(line.values[i]).architecture;
        ReadModelsSection(inf, line.Value(0) + "." + line.values[i], line.key, other, other,
                          models);
    }
}

std::vector<DriverModel> ReadModels(const InfSections& inf, const std::string& architecture,
                                    bool& applies)
{
    std::vector<DriverModel> models;
    const auto manufacturers = inf.Section("Manufacturer");
    for (const auto& line : manufacturers) {
        std::string decorated;
        if (const auto section = FittingSection(inf, line, architecture, decorated))
            ReadModelsSection(inf, *section, line.key, decorated, architecture, models);
    }
    applies = !models.empty();
    if (!applies)
        for (const auto& line : manufacturers)
            ReadOtherModels(inf, line, models);
    return models;
}

} // namespace kestro::servicing
