// registry_settings.cpp - does to a hive what a line of an INF's AddReg section says.
#include "registry_settings.h"

#include "image_tree.h"

#include <algorithm>

namespace kestro::servicing {

// The texts of a REG_MULTI_SZ value with those of the setting that it lacks.
static void Append(HiveFile& hive, HiveFile::Key key, const RegistrySetting& setting)
{
    const auto there = hive.Value(key, setting.name);
    std::vector<std::string> texts = there ? TextsOf(*there) : std::vector<std::string>();
    for (const auto& text : TextsOf({setting.name, setting.type, setting.data}))
        if (std::none_of(texts.begin(), texts.end(),
                         [&](const std::string& one) { return EqualNames(one, text); }))
            texts.push_back(text);
    hive.Set(key, {TextsValue(setting.name, texts)});
}

static void RemoveTexts(HiveFile& hive, HiveFile::Key key, const RegistrySetting& setting)
{
    std::vector<std::string> texts = TextsOf(*hive.Value(key, setting.name));
    std::size_t removed = 0;
    for (const auto& text : TextsOf({setting.name, setting.type, setting.data}))
        removed +=
            std::erase_if(texts, [&](const std::string& one) { return EqualNames(one, text); });
    if (removed != 0)
        hive.Set(key, {TextsValue(setting.name, texts)});
}

void ApplySetting(HiveFile& hive, HiveFile::Key root, const RegistrySetting& setting)
{
    using Action = RegistrySetting::Action;
    const HiveValue value{setting.name, setting.type, setting.data};
    const HiveFile::Key there = hive.Find(root, setting.key);
    const bool has = there && hive.Value(there, setting.name);
    switch (setting.action) {
    case Action::Set:
        hive.Set(hive.Make(root, setting.key), {value});
        break;
    case Action::SetIfAbsent:
        if (!has)
            hive.Set(hive.Make(root, setting.key), {value});
        break;
    case Action::SetIfThere:
        if (has)
            hive.Set(there, {value});
        break;
    case Action::Append:
        Append(hive, hive.Make(root, setting.key), setting);
        break;
    case Action::Remove:
        if (has)
            RemoveTexts(hive, there, setting);
        break;
    case Action::MakeKey:
        hive.Make(root, setting.key);
        break;
    case Action::DeleteValue:
        if (has)
            hive.RemoveValue(there, setting.name);
        break;
    case Action::DeleteKey:
        if (there && !setting.key.empty())
            hive.Remove(there);
        break;
    }
}

} // namespace kestro::servicing
