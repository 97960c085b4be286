// worker.h - threads of the engine's own inside a program that it does not know.
#pragma once

#include <csignal>
#include <cstddef>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

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

// Starts up to `count` workers, each with its number, and returns those that the system has threads for: the
// caller does the rest of the work.
template <class Work>
std::vector<std::jthread> StartWorkers(std::size_t count, const Work& work)
{
    std::vector<std::jthread> workers;
    workers.reserve(count);
    try {
        while (workers.size() < count)
            workers.push_back(StartWorker([&work, number = workers.size()] { work(number); }));
    } catch (const std::system_error&) {
    }
    return workers;
}

} // namespace kestro::servicing
