// termination.cpp - a request of this machine to end a program, as Windows programs know it.
#include "termination.h"

#include <csignal>

#include <unistd.h>

namespace kestro::servicing {

void PassOnTermination()
{
    struct sigaction current = {};
    if (sigaction(SIGTERM, nullptr, &current) != 0 || current.sa_handler != SIG_DFL)
        return;
    // Wine makes Ctrl-C of SIGINT.
    struct sigaction passOn = {};
    passOn.sa_handler = [](int) { kill(getpid(), SIGINT); };
    passOn.sa_flags = SA_RESTART | SA_ONSTACK;
    sigaction(SIGTERM, &passOn, nullptr);
}

} // namespace kestro::servicing
