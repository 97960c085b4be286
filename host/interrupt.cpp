// interrupt.cpp - Ctrl-C and the other requests to end.
#include "interrupt.h"

#include <atomic>

namespace kestro::host {
namespace {

std::atomic<int> g_guards;

BOOL WINAPI OnControl(DWORD control)
{
    if (g_guards == 0)
        return FALSE;
    SetEvent(InterruptEvent());
    // Windows ends a program whose window is closed as soon as this returns.
    if (control != CTRL_C_EVENT && control != CTRL_BREAK_EVENT)
        Sleep(INFINITE);
    return TRUE;
}

} // namespace

InterruptGuard::InterruptGuard()
{
    InterruptEvent();
    if (g_guards++ == 0)
        SetConsoleCtrlHandler(&OnControl, TRUE);
}

InterruptGuard::~InterruptGuard()
{
    if (--g_guards == 0)
        SetConsoleCtrlHandler(&OnControl, FALSE);
}

bool Interrupted()
{
    return WaitForSingleObject(InterruptEvent(), 0) == WAIT_OBJECT_0;
}

HANDLE InterruptEvent()
{
    static HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    return event;
}

} // namespace kestro::host
