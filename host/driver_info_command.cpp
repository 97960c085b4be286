// driver_info_command.cpp - what is known of one driver package. GetDriverInfo drops it, so the servicing API
// is asked itself.
#include "direct_command.h"
#include "package_text.h"
#include "session.h"

namespace kestro::host {
namespace {

using nlohmann::json;

json ToJson(const DeviceDetails& device)
{
    return {{"hardware_id", device.hardwareId},
            {"description", device.description},
            {"manufacturer", device.manufacturer},
            {"service", device.service},
            {"architecture", device.architecture}};
}

void Show(const Output& out, const DriverDetails& details)
{
    const auto line = [&](const char* name, const std::string& value) {
        std::string text = std::string("  ") + name;
        text.resize(18, ' ');
        out.Line(text + value);
    };
    const PackageDetails& package = details.package;
    line("published name", package.publishedName.empty() ? "-" : package.publishedName);
    line("file", Shown(package.originalFileName));
    line("class", package.className + " " + package.classGuid);
    line("provider", package.provider);
    line("version", package.version + "  " + package.date);
    line("signature", SignatureName(package.signature));
    line("boot critical", package.bootCritical ? "yes" : "no");
    for (const DeviceDetails& device : details.devices)
        line("device", device.hardwareId + "  " + device.description);
}

} // namespace

int DriverInfoCommand(const Context& context, const std::wstring& image, const std::wstring& driver)
{
    // A published name stays as it is; anything with a directory is a path.
    const bool isPath = driver.find_first_of(L"\\/:") != std::wstring::npos;
    const std::wstring asked = isPath ? FullPath(driver) : driver;
    return RunDirectly(context, "driver info", [&](const Servicing& servicing, json& document) {
        document["package"] = nullptr;
        document["devices"] = json::array();
        const DriverDetails details = ServicingSession(servicing, FullPath(image)).Driver(asked);
        Show(*context.out, details);
        context.out->Line("The image knows " + Shown(driver));
        document["package"] = PackageJson(details.package);
        for (const DeviceDetails& device : details.devices)
            document["devices"].push_back(ToJson(device));
    });
}

} // namespace kestro::host
