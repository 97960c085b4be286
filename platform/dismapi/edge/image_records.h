// image_records.h - the API's records of images and mounts, as callers get them.
#pragma once

#include "image_info.h"
#include "image_store.h"

#include "servicing_api.h"

#include <vector>

namespace kestro::servicing {

// No text is null. The caller gives each result back with DismDelete.
DismImageInfo* MakeImageRecords(const std::vector<ImageInfo>& images);
DismMountedImageInfo* MakeMountRecords(const std::vector<MountInfo>& mounts);

} // namespace kestro::servicing
