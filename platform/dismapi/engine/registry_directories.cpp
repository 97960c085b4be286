// registry_directories.cpp - puts directories into the registry settings of a driver package.
#include "registry_directories.h"

#include "hive_values.h"
#include "inf_number.h"
#include "reflected_path.h"
#include "text_encoding.h"

namespace kestro::servicing {
namespace {

bool HoldsText(const RegistrySetting& setting)
{
    return setting.type == registry::text || setting.type == registry::expandable ||
           setting.type == registry::texts;
}

// Where in UTF-16 text the character is; the end if it is nowhere.
std::size_t Find(const std::string& text, char character, std::size_t at)
{
    for (; at + 1 < text.size(); at += 2)
        if (text[at] == character && text[at + 1] == '\0')
            return at;
    return text.size();
}

// UTF-16 for the code in UTF-16; empty for what is none of a known directory.
std::string DirectoryOf(const std::string& code, const std::string& folder, bool expandable)
{
    std::string digits;
    for (std::size_t at = 0; at + 1 < code.size(); at += 2)
        digits += code[at + 1] == '\0' ? code[at] : '?';
    std::uint32_t number = 0;
    if (!IsNumber(digits, 10, number))
        return {};
    const std::string path = PathOnDrive({number, ""}, folder);
    if (path.empty())
        return {};
    return Utf16Of(expandable ? WithSystemRoot(path, '\\') : "C:\\" + path);
}

std::string WithDirectories(const std::string& text, const std::string& folder, bool expandable)
{
    std::string result;
    std::size_t at = 0;
    for (;;) {
        const std::size_t open = Find(text, '%', at);
        const std::size_t close = Find(text, '%', open + 2);
        if (close >= text.size())
            return result.append(text, at, std::string::npos);
        const std::string directory =
            DirectoryOf(text.substr(open + 2, close - open - 2), folder, expandable);
        result.append(text, at, open - at);
        at = close + 2;
        result += directory.empty() ? text.substr(open, at - open) : directory;
    }
}

void PutDirectories(std::vector<RegistrySetting>& settings, const std::string& folder)
{
    for (auto& setting : settings)
        if (HoldsText(setting))
            setting.data =
                WithDirectories(setting.data, folder, setting.type == registry::expandable);
}

} // namespace

DriverPackage WithDirectories(DriverPackage package, const std::string& folder)
{
    PutDirectories(package.classSettings, folder);
    for (auto& configuration : package.configurations) {
        PutDirectories(configuration.deviceSettings, folder);
        for (auto& service : configuration.services) {
            PutDirectories(service.settings, folder);
            // Behind a quotation mark, say; what the whole path begins with is read apart.
            if (service.binary.directory == 0)
                service.binary.path =
                    TextOf({"", registry::expandable,
                            WithDirectories(Utf16Of(service.binary.path), folder, true)});
            for (auto& log : service.eventLogs)
                PutDirectories(log.settings, folder);
        }
    }
    return package;
}

} // namespace kestro::servicing
