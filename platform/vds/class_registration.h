// class_registration.h - how clients find the running service.
#pragma once

#include <windows.h>

#include <unknwn.h>

namespace kestro::vds {

// Makes the loader's class factory known: the way to it into the registry, and into Wine's table of running
// classes a reference to that. Needs COM; false when one of them cannot be written.
bool PublishLoader(IClassFactory* factory);

} // namespace kestro::vds
