// image_choice.h - which image of a file is to be mounted.
#pragma once

#include "image_store.h"

namespace kestro::servicing {

// The image's number. Throws ServicingError when there is no such image, or when it cannot be mounted as it
// is asked for.
unsigned ChooseImage(const MountRequest& request);

} // namespace kestro::servicing
