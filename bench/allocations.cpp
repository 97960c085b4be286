// allocations.cpp - counts calls of every allocating function that the library imports.
#include "allocations.h"

#include "platform_calls.h"

#include <cstdint>

namespace kestro::bench {
namespace {

constexpr const char* kAllocators[] = {"malloc",         "calloc",      "realloc",     "_strdup",
                                       "SysAllocString", "HeapAlloc",   "HeapReAlloc", "LocalAlloc",
                                       "CoTaskMemAlloc", "VirtualAlloc"};
constexpr std::size_t kCount = std::size(kAllocators);

// Arguments that a function does not have do no harm.
using Allocator = void*(__cdecl*)(std::uintptr_t, std::uintptr_t, std::uintptr_t, std::uintptr_t);
Allocator g_originals[kCount];
long long g_counts[kCount];

template <std::size_t number>
void* __cdecl Counted(std::uintptr_t a, std::uintptr_t b, std::uintptr_t c, std::uintptr_t d)
{
    ++g_counts[number];
    return g_originals[number](a, b, c, d);
}

template <std::size_t... numbers>
Functions CountingFunctions(std::index_sequence<numbers...>)
{
    return {{kAllocators[numbers], reinterpret_cast<void*>(Counted<numbers>)}...};
}

} // namespace

Allocations CountAllocations(const std::function<void()>& call)
{
    for (const test::Import& import : test::ImportsOf(GetModuleHandleW(L"Kestro.dll")))
        for (std::size_t i = 0; i < kCount; ++i)
            if (import.name == kAllocators[i])
                g_originals[i] = reinterpret_cast<Allocator>(*import.slot);

    const Redirected empty(FunctionsOf(EmptyPlatform()));
    const Redirected counting(CountingFunctions(std::make_index_sequence<kCount>()));
    call();
    for (long long& count : g_counts)
        count = 0;
    call();

    Allocations allocations;
    for (std::size_t i = 0; i < kCount; ++i)
        if (g_counts[i] > 0)
            allocations[kAllocators[i]] = g_counts[i];
    return allocations;
}

} // namespace kestro::bench
