// inf_registry.h - the registry settings that an INF's AddReg and DelReg directives make.
#pragma once

#include "inf_reader.h"
#include "registry_setting.h"

namespace kestro::servicing {

// Those of one section, deletions first as Windows does them.
std::vector<RegistrySetting> ReadSettings(InfReader& reader, const PlacedLines& section);

// Values of the HKR key itself.
RegistrySetting NumberSetting(const std::string& name, std::uint32_t number);
RegistrySetting BytesSetting(const std::string& name, const std::string& bytes);
RegistrySetting TextsSetting(const std::string& name, const std::vector<std::string>& texts);

} // namespace kestro::servicing
