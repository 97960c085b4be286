// image_records.h - the API's records of images, as callers get them.
#pragma once

#include "image_info.h"

#include "servicing_api.h"

#include <vector>

namespace kestro::servicing {

// No text is null. The caller gives the result back with DismDelete.
DismImageInfo* MakeImageRecords(const std::vector<ImageInfo>& images);

} // namespace kestro::servicing
