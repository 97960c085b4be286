// set_up.h - the service's entries in a prefix.
#pragma once

namespace kestro::vds {

// Registers the service, its class, the class that leads to it and the interfaces' proxy; ends a service that
// runs from before. The program's exit code.
int SetUp();

} // namespace kestro::vds
