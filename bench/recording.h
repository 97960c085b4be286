// recording.h - the platform calls of one call of an export, as the floor replays them.
#pragma once

#include "floor.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace kestro::bench {

struct Recording {
    std::vector<Call> calls;
    std::deque<std::string> narrow;
    std::deque<std::wstring> wide;
    std::vector<BSTR> strings; // copied and not freed; free places are null
    int lines = 0;             // of section Log
    int steps = 0;             // writes to a step's section
    int conversions = 0;
    int writes = 0;

    const char* Keep(const char* text)
    {
        return text ? narrow.emplace_back(text).c_str() : nullptr;
    }
    const wchar_t* Keep(const wchar_t* text)
    {
        return text ? wide.emplace_back(text).c_str() : nullptr;
    }
    void Add(CallKind kind, std::vector<const void*> arguments = {}, int length = 0,
             int capacity = 0);
    void CountWrite(bool log, bool righe, bool status)
    {
        ++writes;
        lines += log && !righe;
        steps += !log && !status;
    }
};

Recording RecordCall(const std::function<void()>& call);

// Replays a recording into another one, and says whether both hold the same calls with the same texts.
bool ReplaysAlike(const Recording& recording);

// The names of what the library imports from the platform's services and no recording would show.
std::vector<std::string> UnrecordedImports();

// --- for the stubs --------------------------------------------------------------------------------

// The one under way, if any.
extern Recording* g_recording;

// Where the floor lets a stub put its results.
inline void* OutOfFloor()
{
    alignas(16) static char results[256];
    return results;
}

template <class T>
const void* Argument(T value)
{
    if constexpr (std::is_pointer_v<T>)
        return value;
    else
        return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(value));
}

// Every stub notes its own call.
template <class Function, class... Arguments>
void NoteStub(Function* stub, Arguments... arguments)
{
    if (g_recording != nullptr) [[unlikely]] {
        g_recording->Add(CALL_STUB, {Argument(arguments)...});
        g_recording->calls.back().stub = reinterpret_cast<Stub>(reinterpret_cast<void*>(stub));
    }
}

} // namespace kestro::bench
