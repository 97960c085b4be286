// inf_services.cpp - the services that an INF's .Services sections add.
#include "inf_services.h"

#include "inf_number.h"
#include "inf_registry.h"
#include "inf_service_directives.h"

namespace kestro::servicing {

DirectoryPath DirectoryPathOf(const std::string& text)
{
    const auto end = text.starts_with('%') ? text.find('%', 1) : std::string::npos;
    std::uint32_t directory = 0;
    if (end == std::string::npos || !IsNumber(text.substr(1, end - 1), 10, directory))
        return {0, text};
    const auto path = text.find_first_not_of('\\', end + 1);
    return {directory, path == std::string::npos ? std::string() : text.substr(path)};
}

static std::uint32_t Number(const InfLine& line)
{
    return static_cast<std::uint32_t>(InfNumber(line.Value(0)));
}

static TokenText Tokens(const InfLine& line)
{
    return {line.Field(0).written, line.Field(0).text};
}

static void ReadDependencies(const InfLine& line, ServiceInstall& service)
{
    for (const auto& [written, name] : line.values) {
        if (name.starts_with('+'))
            service.dependsOnGroups.push_back(name.substr(1));
        else if (!name.empty())
            service.dependsOnServices.push_back(name);
    }
}

static void ReadServiceLine(const InfLine& line, ServiceInstall& service)
{
    const std::string key = LowerCase(line.Key());
    if (key == "servicetype")
        service.type = Number(line);
    else if (key == "starttype")
        service.start = Number(line);
    else if (key == "errorcontrol")
        service.errorControl = Number(line);
    else if (key == "servicebinary")
        service.binary = DirectoryPathOf(line.Value(0));
    else if (key == "displayname")
        service.displayName = Tokens(line);
    else if (key == "description")
        service.description = Tokens(line);
    else if (key == "loadordergroup")
        service.loadOrderGroup = line.Value(0);
    else if (key == "startname")
        service.startName = line.Value(0);
    else if (key == "dependencies")
        ReadDependencies(line, service);
}

static EventLog ReadEventLog(InfReader& reader, const PlacedLine& added)
{
    const InfLine& line = added.line;
    EventLog log;
    log.type = line.Value(4).empty() ? "System" : line.Value(4);
    log.name = line.Value(5).empty() ? line.Value(0) : line.Value(5);
    log.settings = ReadSettings(reader, reader.Named(*added.inf, line.Value(3)));
    return log;
}

static ServiceInstall ReadService(InfReader& reader, const PlacedLine& added)
{
    ServiceInstall service;
    if (added.inf != &reader.Inf())
        service.inf = added.inf->Name();
    service.name = added.line.Value(0);
    service.flags = static_cast<std::uint32_t>(InfNumber(added.line.Value(1)));
    const auto section = reader.Named(*added.inf, added.line.Value(2));
    for (const auto& placed : section)
        ReadServiceLine(placed.line, service);
    service.settings = ReadSettings(reader, section);
    service.directives = ReadServiceDirectives(reader, section);
    if (!added.line.Value(3).empty())
        service.eventLogs.push_back(ReadEventLog(reader, added));
    return service;
}

std::vector<ServiceInstall> ReadServices(InfReader& reader, const PlacedLines& section)
{
    std::vector<ServiceInstall> services;
    // "AddService = ,2" says that the device has no service.
    for (const auto& placed : section)
        if (EqualNames(placed.line.Key(), "AddService") && !placed.line.Value(0).empty())
            services.push_back(ReadService(reader, placed));
    return services;
}

} // namespace kestro::servicing
