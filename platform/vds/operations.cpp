// operations.cpp - what runs on after the call that began it.
#include "operations.h"

#include <condition_variable>
#include <mutex>

namespace kestro::vds {
namespace {

std::mutex g_operationsMutex;
std::condition_variable g_changed;
int g_running = 0;

} // namespace

RunningOperation::RunningOperation()
{
    const std::lock_guard lock(g_operationsMutex);
    ++g_running;
}

RunningOperation::~RunningOperation()
{
    const std::lock_guard lock(g_operationsMutex);
    --g_running;
    g_changed.notify_all();
}

void RunningOperation::WaitForAll()
{
    std::unique_lock lock(g_operationsMutex);
    g_changed.wait(lock, [] { return g_running == 0; });
}

} // namespace kestro::vds
