// termination.h - a request of this machine to end a program, as Windows programs know it.
#pragma once

namespace kestro::servicing {

// From now on SIGTERM arrives as Ctrl-C does: a program that undoes what it is doing can, and one that does not
// listen ends as before. Leaves a program alone that has its own way with the signal.
void PassOnTermination();

} // namespace kestro::servicing
