// worker.h - threads of the engine's own inside a program that it does not know.
#pragma once

#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

namespace kestro::servicing {

// Starts a thread that Wine knows nothing of: what runs on it must stay clear of Windows functions. It
// takes none of the process's signals, whose handlers expect Wine's own threads. Throws
// std::system_error when the system gives no thread.
template <class Work>
std::jthread StartWorker(Work work)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::jthread thread(std::move(work));
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return thread;
    } catch (...) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        throw;
    }
}

} // namespace kestro::servicing
