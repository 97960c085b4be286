// inf_service_directives.cpp - what a service section of an INF says of its service beside the section's
// basic entries.
#include "inf_service_directives.h"

#include "driver_version.h"
#include "hive_values.h"
#include "inf_number.h"
#include "inf_registry.h"
#include "service_security.h"
#include "text_encoding.h"

#include <algorithm>

namespace kestro::servicing {
namespace {

// The first builds of Windows that understand what is named here.
constexpr unsigned kWindows10Of2004 = 19041;
constexpr unsigned kWindows11Of22H2 = 22621;
constexpr unsigned kWithBootFlags = 25381;

std::uint32_t FieldNumber(const InfLine& line, std::size_t index = 0)
{
    return static_cast<std::uint32_t>(InfNumber(line.Value(index)));
}

// The service control manager's own record of what to do when the service fails.
ServiceDirective FailureDirective(const PlacedLines& section)
{
    constexpr std::uint32_t never = 0xFFFFFFFF, actionsAt = 20;
    std::uint32_t resetPeriod = never;
    std::string actions;
    ServiceDirective directive{"FailureActions", kWindows11Of22H2, {}};
    for (const auto& [inf, line] : section) {
        if (EqualNames(line.Key(), "ResetPeriod"))
            resetPeriod = FieldNumber(line);
        else if (EqualNames(line.Key(), "Action"))
            actions += NumberBytes(FieldNumber(line), 4) + NumberBytes(FieldNumber(line, 1), 4);
        else if (EqualNames(line.Key(), "NonCrashFailures"))
            directive.settings.push_back(
                NumberSetting("FailureActionsOnNonCrashFailures", FieldNumber(line)));
    }
    if (actions.empty())
        return directive;
    const auto bytes = NumberBytes(resetPeriod, 4) + NumberBytes(0, 8) +
                       NumberBytes(actions.size() / 8, 4) + NumberBytes(actionsAt, 4) + actions;
    directive.settings.insert(directive.settings.begin(), BytesSetting("FailureActions", bytes));
    return directive;
}

std::vector<RegistrySetting> TriggerSettings(const PlacedLines& section, std::size_t number)
{
    constexpr std::uint32_t ofText = 2;
    std::vector<RegistrySetting> settings;
    std::size_t items = 0;
    for (const auto& [inf, line] : section) {
        if (EqualNames(line.Key(), "TriggerType")) {
            settings.push_back(NumberSetting("Type", FieldNumber(line)));
        } else if (EqualNames(line.Key(), "Action")) {
            settings.push_back(NumberSetting("Action", FieldNumber(line)));
        } else if (EqualNames(line.Key(), "SubType")) {
            settings.push_back(BytesSetting("GUID", GuidBytes(line.Value(0))));
        } else if (EqualNames(line.Key(), "DataItem") && FieldNumber(line) == ofText) {
            const std::string item = std::to_string(items++);
            settings.push_back(
                BytesSetting("Data" + item, Utf16Of(line.Value(1)) + std::string(2, '\0')));
            settings.push_back(NumberSetting("DataType" + item, ofText));
        }
    }
    for (auto& setting : settings)
        setting.key = "TriggerInfo\\" + std::to_string(number);
    return settings;
}

ServiceDirective SecurityDirective(const std::string& text)
{
    ServiceDirective directive{"Security", 0, {}};
    if (const auto bytes = ServiceSecurity(text)) {
        directive.settings = {BytesSetting("Security", *bytes)};
        directive.settings.front().key = "Security";
    }
    return directive;
}

ServiceDirective TextsDirective(const std::string& name, const InfLine& line)
{
    std::vector<std::string> texts;
    for (const auto& [written, text] : line.values)
        texts.push_back(text);
    return {name, 0, {TextsSetting(name, texts)}};
}

} // namespace

std::vector<ServiceDirective> ReadServiceDirectives(InfReader& reader, const PlacedLines& section)
{
    std::vector<ServiceDirective> directives;
    ServiceDirective triggers{"AddTrigger", kWindows10Of2004, {}};
    std::size_t triggerCount = 0;
    for (const auto& [inf, line] : section) {
        const auto is = [&key = line.Key()](const char* name) { return EqualNames(key, name); };
        if (is("BootFlags"))
            directives.push_back(
                {"BootFlags", kWithBootFlags, {NumberSetting("BootFlags", FieldNumber(line))}});
        else if (is("DelayedAutoStart"))
            directives.push_back({"DelayedAutoStart",
                                  kWindows10Of2004,
                                  {NumberSetting("DelayedAutostart", FieldNumber(line))}});
        else if (is("ServiceSidType"))
            directives.push_back({"ServiceSidType",
                                  kWindows10Of2004,
                                  {NumberSetting("ServiceSidType", FieldNumber(line))}});
        else if (is("RequiredPrivileges"))
            directives.push_back(TextsDirective("RequiredPrivileges", line));
        else if (is("FailureActions"))
            directives.push_back(FailureDirective(reader.Named(*inf, line.Value(0))));
        else if (is("Security"))
            directives.push_back(SecurityDirective(line.Value(0)));
        else if (is("BitReg"))
            directives.push_back({"BitReg", 0, {}});
        else if (is("AddTrigger"))
            for (const auto& [written, name] : line.values)
                for (auto& setting : TriggerSettings(reader.Named(*inf, name), triggerCount++))
                    triggers.settings.push_back(std::move(setting));
    }
    if (triggerCount != 0)
        directives.push_back(std::move(triggers));
    return directives;
}

} // namespace kestro::servicing
