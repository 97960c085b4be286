// server.cpp - the life of the service's process.
#include "server.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace kestro::vds {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// How long the process waits for its client, and how long it stays after the client's last object, so that
// the answer to its release gets out.
constexpr auto kStayUnasked = 30s;
constexpr auto kStayUnused = 100ms;

std::mutex g_mutex;
std::condition_variable g_changed;
int g_objects = 0;
int g_operations = 0;
bool g_asked = false;
bool g_clientEnded = false;
Clock::time_point g_lastChange = Clock::now();

void Change(int objects, int operations)
{
    const std::lock_guard lock(g_mutex);
    g_objects += objects;
    g_operations += operations;
    g_asked = g_asked || objects > 0;
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

bool ServerActivity::ServeOnly(DWORD client)
{
    const HANDLE process = OpenProcess(SYNCHRONIZE, FALSE, client);
    if (process == nullptr)
        return false;
    std::thread([process] {
        WaitForSingleObject(process, INFINITE);
        CloseHandle(process);
        const std::lock_guard lock(g_mutex);
        g_clientEnded = true;
        g_changed.notify_all();
    }).detach();
    return true;
}

void ServerActivity::WaitUntilIdle()
{
    std::unique_lock lock(g_mutex);
    for (;;) {
        const auto end = g_lastChange + (g_asked ? Clock::duration(kStayUnused) : kStayUnasked);
        if (g_operations > 0 || (g_objects > 0 && !g_clientEnded))
            g_changed.wait(lock);
        else if (g_clientEnded || Clock::now() >= end)
            return;
        else
            g_changed.wait_until(lock, end);
    }
}

} // namespace kestro::vds
