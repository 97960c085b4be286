// inf_models.h - which devices an INF is for on the image's Windows.
#pragma once

#include "driver_package.h"
#include "image_windows.h"
#include "inf_reader.h"

namespace kestro::servicing {

struct InfModels {
    Fit fit = Fit::NothingToInstall;
    std::uint32_t osVersionFloor = 0;
    // Those for the image's Windows; if there are none, those for others. Without their services.
    std::vector<DriverModel> models;
};

InfModels ReadModels(InfReader& reader, const ImageWindows& windows);

} // namespace kestro::servicing
