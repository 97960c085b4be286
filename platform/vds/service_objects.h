// service_objects.h - the objects of the service: loader, service, providers, packs and disks.
#pragma once

#include <unknwn.h>

namespace kestro::vds {

// The class object that COM hands to clients; it makes loaders.
IUnknown* NewLoaderFactory();

} // namespace kestro::vds
