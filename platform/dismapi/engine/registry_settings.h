// registry_settings.h - does to a hive what a line of an INF's AddReg section says.
#pragma once

#include "hive_file.h"
#include "registry_setting.h"

namespace kestro::servicing {

// `root` is the key that the setting's own key is below.
void ApplySetting(HiveFile& hive, HiveFile::Key root, const RegistrySetting& setting);

} // namespace kestro::servicing
