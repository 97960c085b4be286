// service_objects.h - the service and its loader.
#pragma once

#include <unknwn.h>

namespace kestro::vds {

// Makes loaders.
IClassFactory* LoaderFactory();

} // namespace kestro::vds
