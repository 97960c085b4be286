// kept_stubs.h - a stub of every interface that stays as long as the service runs.
#pragma once

namespace kestro::vds {

// Needs COM. What cannot be kept is named in the log; the service works without it.
void KeepStubs();

} // namespace kestro::vds
