// image_list_command.cpp - the images that a file holds.
#include "direct_command.h"
#include "image_choice.h"
#include "session.h"
#include "sizes.h"
#include "table.h"

namespace kestro::host {
namespace {

using nlohmann::json;

json ToJson(const ImageDetails& image)
{
    const char* const bootable[] = {"yes", "no", "unknown"};
    return {{"index", image.index},
            {"name", image.name},
            {"description", image.description},
            {"size", image.size},
            {"architecture", ArchitectureText(image.architecture)},
            {"version", image.version},
            {"service_pack", image.servicePack},
            {"edition", image.edition},
            {"product_name", image.productName},
            {"product_type", image.productType},
            {"product_suite", image.productSuite},
            {"installation_type", image.installationType},
            {"hal", image.hal},
            {"system_root", image.systemRoot},
            {"languages", image.languages},
            {"default_language", image.defaultLanguage},
            {"bootable", bootable[static_cast<int>(image.bootable)]},
            {"directories", image.directories},
            {"files", image.files},
            {"created", image.created},
            {"modified", image.modified}};
}

} // namespace

int ImageListCommand(const Context& context, const std::wstring& image)
{
    const std::wstring file = FullPath(image);
    return RunDirectly(context, "image list", [&](const Servicing& servicing, json& document) {
        document["file"] = Shown(file);
        document["images"] = json::array();
        std::vector<std::vector<std::string>> rows;
        for (const ImageDetails& details : servicing.Images(file)) {
            document["images"].push_back(ToJson(details));
            rows.push_back({std::to_string(details.index), ArchitectureText(details.architecture),
                            details.version, details.edition.empty() ? "-" : details.edition,
                            SizeText(details.size), details.name, details.description});
        }
        ShowTable(*context.out,
                  {"INDEX", "FOR", "VERSION", "EDITION", "SIZE", "NAME", "DESCRIPTION"}, rows);
    });
}

} // namespace kestro::host
