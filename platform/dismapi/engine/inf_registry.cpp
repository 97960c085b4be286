// inf_registry.cpp - the registry settings that an INF's AddReg and DelReg directives make.
#include "inf_registry.h"

#include "inf_number.h"
#include "text_encoding.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

namespace kestro::servicing {
namespace {

using Action = RegistrySetting::Action;

// The flags of a line, as Windows' headers name them.
constexpr std::uint32_t kBinary = 0x1;
constexpr std::uint32_t kNoClobber = 0x2;
constexpr std::uint32_t kDelete = 0x4;
constexpr std::uint32_t kAppend = 0x8;
constexpr std::uint32_t kKeyOnly = 0x10;
constexpr std::uint32_t kOverwriteOnly = 0x20;
constexpr std::uint32_t kKeyOnlyCommon = 0x2000;
constexpr std::uint32_t kTypeMask = 0xFFFF0000 | kBinary;

constexpr std::uint32_t kText = 1, kExpandText = 2, kBytes = 3, kNumber = 4, kTexts = 7,
                        kLongNumber = 11;

// Fields of a line: root, key, name, flags, data.
constexpr std::size_t kName = 2, kFlags = 3, kData = 4;

std::uint32_t TypeOf(std::uint32_t flags)
{
    switch (flags & kTypeMask) {
    case 0x00000000:
        return kText;
    case 0x00000001:
        return kBytes;
    case 0x00010000:
        return kTexts;
    case 0x00010001:
        return kNumber;
    case 0x00020000:
        return kExpandText;
    case 0x00020001:
        return 0;
    default:
        return flags >> 16;
    }
}

std::string Text(const std::string& utf8)
{
    return Utf16Of(utf8) + std::string(2, '\0');
}

std::string Texts(const std::vector<std::string>& texts)
{
    std::string data;
    for (const auto& text : texts)
        if (!text.empty())
            data += Text(text);
    return data + std::string(2, '\0');
}

std::string Texts(const InfLine& line)
{
    std::vector<std::string> texts;
    for (std::size_t i = kData; i < line.values.size(); ++i)
        texts.push_back(line.Value(i));
    return Texts(texts);
}

std::string Number(std::uint64_t number, int bytes)
{
    std::string data;
    for (int i = 0; i < bytes; ++i)
        data += static_cast<char>(number >> 8 * i & 0xFF);
    return data;
}

std::string Bytes(const InfLine& line)
{
    std::string data;
    for (std::size_t i = kData; i < line.values.size(); ++i)
        data += static_cast<char>(std::strtoul(line.Value(i).c_str(), nullptr, 16) & 0xFF);
    return data;
}

std::string DataOf(const InfLine& line, std::uint32_t flags, std::uint32_t type)
{
    // Numbers are written as one, or as their bytes.
    if ((flags & kBinary) && (type == kNumber || type == kLongNumber) &&
        line.values.size() <= kData + 1)
        return Number(InfNumber(line.Value(kData)), type == kNumber ? 4 : 8);
    if (flags & kBinary)
        return Bytes(line);
    return type == kTexts ? Texts(line) : Text(line.Value(kData));
}

Action ActionOf(const InfLine& line, std::uint32_t flags, std::uint32_t type)
{
    const bool keyAlone = line.values.size() <= kName;
    if (keyAlone || (flags & (kKeyOnly | kKeyOnlyCommon)))
        return Action::MakeKey;
    if ((flags & kAppend) && type == kTexts)
        return Action::Append;
    if (flags & kNoClobber)
        return Action::SetIfAbsent;
    return flags & kOverwriteOnly ? Action::SetIfThere : Action::Set;
}

// The place of a setting; nothing for a line that names none.
std::optional<RegistrySetting> PlaceOf(const InfLine& line)
{
    RegistrySetting setting;
    for (const char c : line.Value(0))
        setting.root += c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    const auto roots = {"HKR", "HKLM", "HKCR", "HKCU", "HKU"};
    if (std::find(roots.begin(), roots.end(), setting.root) == roots.end())
        return std::nullopt;
    std::string part;
    for (const char c : line.Value(1) + "\\") {
        if (c != '\\') {
            part += c;
            continue;
        }
        if (!part.empty())
            setting.key += (setting.key.empty() ? "" : "\\") + part;
        part.clear();
    }
    setting.name = line.Value(kName);
    return setting;
}

// A text of a value, a value, or a key with all below it. The root itself is never deleted.
std::optional<RegistrySetting> Deletion(RegistrySetting setting, std::uint32_t flags,
                                        const InfLine& line)
{
    constexpr std::uint32_t ofTexts = 0x00018002;
    if ((flags & ofTexts) == ofTexts) {
        setting.action = Action::Remove;
        setting.type = kTexts;
        setting.data = Texts(line);
        return setting;
    }
    if (flags & kKeyOnlyCommon)
        setting.name.clear();
    if (setting.name.empty() && setting.key.empty())
        return std::nullopt;
    setting.action = setting.name.empty() ? Action::DeleteKey : Action::DeleteValue;
    return setting;
}

std::optional<RegistrySetting> SettingOf(const InfLine& line, bool deletes)
{
    auto setting = PlaceOf(line);
    if (!setting)
        return std::nullopt;
    const auto flags = static_cast<std::uint32_t>(InfNumber(line.Value(kFlags)));
    if (deletes || (flags & kDelete))
        return Deletion(std::move(*setting), flags, line);
    setting->type = TypeOf(flags);
    setting->action = ActionOf(line, flags, setting->type);
    if (setting->action == Action::MakeKey) {
        setting->name.clear();
        setting->type = 0;
    } else {
        setting->data = DataOf(line, flags, setting->type);
    }
    return setting;
}

RegistrySetting Own(const std::string& name, std::uint32_t type, const std::string& data)
{
    RegistrySetting setting;
    setting.root = "HKR";
    setting.name = name;
    setting.type = type;
    setting.data = data;
    return setting;
}

} // namespace

RegistrySetting NumberSetting(const std::string& name, std::uint32_t number)
{
    return Own(name, kNumber, Number(number, 4));
}

RegistrySetting BytesSetting(const std::string& name, const std::string& bytes)
{
    return Own(name, kBytes, bytes);
}

RegistrySetting TextsSetting(const std::string& name, const std::vector<std::string>& texts)
{
    return Own(name, kTexts, Texts(texts));
}

std::vector<RegistrySetting> ReadSettings(InfReader& reader, const PlacedLines& section)
{
    std::vector<RegistrySetting> settings;
    for (const bool deletes : {true, false})
        for (const auto& placed : reader.Listed(section, deletes ? "DelReg" : "AddReg"))
            if (auto setting = SettingOf(placed.line, deletes))
                settings.push_back(std::move(*setting));
    return settings;
}

} // namespace kestro::servicing
