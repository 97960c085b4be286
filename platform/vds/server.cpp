// server.cpp - the life of the service's process.
#include "server.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kestro::vds {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// How long the process stays after its last object, and after its last call while objects are left.
constexpr auto kStayUnused = 3s;
constexpr auto kStayUncalled = 60s;

std::mutex g_mutex;
std::condition_variable g_changed;
int g_objects = 0;
int g_operations = 0;
Clock::time_point g_lastChange = Clock::now();

void Change(int objects, int operations)
{
    const std::lock_guard lock(g_mutex);
    g_objects += objects;
    g_operations += operations;
    g_lastChange = Clock::now();
    g_changed.notify_all();
}

} // namespace

void ServerActivity::Entered()
{
    Change(+1, 0);
}

void ServerActivity::Left()
{
    Change(-1, 0);
}

void ServerActivity::OperationBegan()
{
    Change(0, +1);
}

void ServerActivity::OperationEnded()
{
    Change(0, -1);
}

void ServerActivity::Called()
{
    Change(0, 0);
}

void ServerActivity::WaitUntilIdle()
{
    std::unique_lock lock(g_mutex);
    for (;;) {
        const auto end = g_lastChange + (g_objects == 0 ? Clock::duration(kStayUnused)
                                                        : Clock::duration(kStayUncalled));
        if (g_operations > 0) {
            g_changed.wait(lock);
            continue;
        }
        if (Clock::now() >= end)
            return;
        g_changed.wait_until(lock, end);
    }
}

} // namespace kestro::vds
