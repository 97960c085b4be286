// process_state.cpp - counts handles and walks the heaps.
#include "soak/process_state.h"

#include <cstdint>
#include <psapi.h>
#include <vector>

namespace kestro::test {

namespace {

void AddHeap(HANDLE heap, ProcessState& state)
{
    if (!HeapLock(heap))
        return;
    PROCESS_HEAP_ENTRY entry = {};
    while (HeapWalk(heap, &entry))
        if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) {
            ++state.heap_blocks;
            state.heap_bytes += entry.cbData;
        }
    HeapUnlock(heap);
}

// Handles are multiples of four and the lowest free one is handed out. Wine does not count them itself.
DWORD CountHandles()
{
    constexpr std::uintptr_t last = 0x2000;
    DWORD count = 0;
    if (GetProcessHandleCount(GetCurrentProcess(), &count) && count > 0)
        return count;
    DWORD flags = 0;
    for (std::uintptr_t value = 4; value <= last; value += 4)
        count += GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != 0;
    return count;
}

} // namespace

ProcessState MeasureProcess()
{
    ProcessState state;
    state.handles = CountHandles();

    std::vector<HANDLE> heaps(GetProcessHeaps(0, nullptr));
    heaps.resize(GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data()));
    for (const HANDLE heap : heaps)
        AddHeap(heap, state);

    PROCESS_MEMORY_COUNTERS memory = {};
    if (GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory))
        state.private_bytes = memory.PagefileUsage;
    return state;
}

} // namespace kestro::test
