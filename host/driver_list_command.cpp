// driver_list_command.cpp - the driver packages of an image: the third-party ones through the library, which
// tells their names; with all that is known of them from the servicing API itself.
#include "direct_command.h"
#include "package_text.h"
#include "session.h"
#include "table.h"

#include <algorithm>
#include <cstdlib>

namespace kestro::host {
namespace {

using nlohmann::json;

// Names with numbers by value: oem2.inf before oem10.inf.
bool ByName(const PackageDetails& left, const PackageDetails& right)
{
    const auto key = [](const PackageDetails& package) {
        const std::size_t digits = package.publishedName.find_first_of("0123456789");
        const auto number = digits == std::string::npos
                                ? 0UL
                                : std::strtoul(package.publishedName.c_str() + digits, nullptr, 10);
        return std::tuple(package.inBox, package.publishedName.substr(0, digits), number,
                          package.publishedName);
    };
    return key(left) < key(right);
}

void Show(const Output& out, const std::vector<PackageDetails>& packages, bool details)
{
    std::vector<std::vector<std::string>> rows;
    for (const PackageDetails& package : packages)
        if (details)
            rows.push_back({package.publishedName, package.className, package.provider,
                            package.date, package.version, package.bootCritical ? "yes" : "no",
                            SignatureName(package.signature), Shown(package.originalFileName)});
        else
            rows.push_back({package.publishedName, Shown(package.originalFileName)});
    if (details)
        ShowTable(out,
                  {"NAME", "CLASS", "PROVIDER", "DATE", "VERSION", "BOOT", "SIGNATURE", "FILE"},
                  rows);
    else
        ShowTable(out, {"NAME", "FILE"}, rows);
}

int ListDirectly(const Context& context, const std::wstring& image, const ListFlags& flags)
{
    return RunDirectly(context, "driver list", [&](const Servicing& servicing, json& document) {
        document["packages"] = json::array();
        auto packages = ServicingSession(servicing, image).Packages(flags.all);
        std::sort(packages.begin(), packages.end(), ByName);
        for (const PackageDetails& package : packages)
            document["packages"].push_back(PackageJson(package));
        Show(*context.out, packages, flags.details);
        context.out->Line(std::to_string(packages.size()) +
                          (flags.all ? " packages" : " third-party packages"));
    });
}

} // namespace

int DriverListCommand(const Context& context, const std::wstring& image, const ListFlags& flags)
{
    if (flags.all || flags.details)
        return ListDirectly(context, FullPath(image), flags);
    Session session(context, "driver list");
    const ResultPath result = session.NextResult();
    const DriverListing listing =
        session.Kestro().GetDrivers(FullPath(image), session.FilesWith(result));
    json list = json::array();
    for (const ListedPackage& package : listing.packages) {
        list.push_back({{"published_name", package.publishedName},
                        {"original_file", Shown(package.originalFileName)}});
        std::string line = package.publishedName;
        line.resize(std::max<std::size_t>(line.size() + 2, 16), ' ');
        session.Out().Line(line + Shown(package.originalFileName));
    }
    return session.Finish(listing,
                          std::to_string(listing.packages.size()) + " third-party packages",
                          {{"packages", list}});
}

} // namespace kestro::host
