// recording.cpp - notes the platform calls that an export, or the floor, makes.
#include "recording.h"

#include "platform_calls.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>

namespace kestro::bench {

Recording* g_recording = nullptr;

namespace {

BOOL WINAPI RecordWriteA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR path)
{
    Recording& r = *g_recording;
    r.Add(CALL_WRITE_A, {r.Keep(section), r.Keep(key), r.Keep(value), r.Keep(path)});
    r.CountWrite(std::strcmp(section, "Log") == 0, std::strcmp(key, "Righe") == 0,
                 std::strcmp(section, "Status") == 0);
    return TRUE;
}
BOOL WINAPI RecordWriteW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR path)
{
    Recording& r = *g_recording;
    r.Add(CALL_WRITE_W, {r.Keep(section), r.Keep(key), r.Keep(value), r.Keep(path)});
    r.CountWrite(std::wcscmp(section, L"Log") == 0, std::wcscmp(key, L"Righe") == 0,
                 std::wcscmp(section, L"Status") == 0);
    return TRUE;
}
int WINAPI RecordToWide(UINT page, DWORD flags, LPCSTR text, int length, LPWSTR out, int capacity)
{
    g_recording->Add(CALL_TO_WIDE, {g_recording->Keep(text)}, length, capacity);
    g_recording->conversions += capacity == 0;
    return MultiByteToWideChar(page, flags, text, length, out, capacity);
}
int WINAPI RecordToNarrow(UINT page, DWORD flags, LPCWSTR text, int length, LPSTR out, int capacity,
                          LPCSTR fallback, LPBOOL used)
{
    g_recording->Add(CALL_TO_NARROW, {g_recording->Keep(text)}, length, capacity);
    g_recording->conversions += capacity == 0;
    return WideCharToMultiByte(page, flags, text, length, out, capacity, fallback, used);
}

// Where a string is kept, or the first free place.
int PlaceOf(BSTR string)
{
    std::vector<BSTR>& strings = g_recording->strings;
    const auto place = std::find(strings.begin(), strings.end(), string);
    return static_cast<int>(place - strings.begin());
}
BSTR WINAPI RecordCopyString(const OLECHAR* text)
{
    g_recording->strings.resize(KEPT_STRINGS);
    const int place = PlaceOf(nullptr);
    g_recording->Add(CALL_COPY_STRING, {g_recording->Keep(text)}, place);
    return g_recording->strings.at(static_cast<std::size_t>(place)) = SysAllocString(text);
}
void WINAPI RecordFreeString(BSTR string)
{
    const int place = PlaceOf(string);
    g_recording->Add(CALL_FREE_STRING, {}, place);
    g_recording->strings.at(static_cast<std::size_t>(place)) = nullptr;
    SysFreeString(string);
}

DWORD WINAPI RecordLastError()
{
    g_recording->Add(CALL_LAST_ERROR);
    return 0;
}
__time64_t __cdecl RecordTime(__time64_t* now)
{
    g_recording->Add(CALL_TIME);
    return _time64(now);
}
std::tm* __cdecl RecordLocalTime(const __time64_t* now)
{
    g_recording->Add(CALL_LOCAL_TIME);
    return _localtime64(now);
}
int __cdecl RecordPrintA(const char* format, va_list arguments)
{
    char text[1024] = {};
    const int length = _vsnprintf(text, std::size(text) - 1, format, arguments);
    g_recording->Add(CALL_PRINT_A, {g_recording->Keep(text)});
    return length;
}
int __cdecl RecordPrintW(const wchar_t* format, va_list arguments)
{
    wchar_t text[1024] = {};
    const int length = _vsnwprintf(text, std::size(text) - 1, format, arguments);
    g_recording->Add(CALL_PRINT_W, {g_recording->Keep(text)});
    return length;
}
int __cdecl RecordFlush(FILE*)
{
    g_recording->Add(CALL_FLUSH);
    return 0;
}
HANDLE WINAPI RecordOpenFile(LPCWSTR path, DWORD access, DWORD sharing, LPSECURITY_ATTRIBUTES,
                             DWORD disposition, DWORD flags, HANDLE)
{
    g_recording->Add(CALL_OPEN, {g_recording->Keep(path), Argument(access), Argument(sharing),
                                 Argument(disposition), Argument(flags)});
    return INVALID_HANDLE_VALUE;
}

const Platform kRecorder = {
    RecordWriteA,     RecordWriteW,    RecordToWide,   RecordToNarrow,  RecordCopyString,
    RecordFreeString, RecordLastError, RecordTime,     RecordLocalTime, RecordPrintA,
    RecordPrintW,     RecordFlush,     RecordOpenFile,
};

// While a call is recorded.
class Recorder {
  public:
    explicit Recorder(Recording& recording) { g_recording = &recording; }
    ~Recorder() { g_recording = nullptr; }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;
};

enum class Text { None, Narrow, Wide };

Text TextOf(CallKind kind, std::size_t argument)
{
    switch (kind) {
    case CALL_WRITE_A:
    case CALL_TO_WIDE:
    case CALL_PRINT_A:
        return Text::Narrow;
    case CALL_WRITE_W:
    case CALL_TO_NARROW:
    case CALL_COPY_STRING:
    case CALL_PRINT_W:
        return Text::Wide;
    case CALL_OPEN:
        return argument == 0 ? Text::Wide : Text::None;
    default:
        return Text::None;
    }
}

bool SameArgument(const void* left, const void* right, Text text)
{
    if (text == Text::None || left == nullptr || right == nullptr)
        return left == right;
    if (text == Text::Narrow)
        return std::strcmp(static_cast<const char*>(left), static_cast<const char*>(right)) == 0;
    return std::wcscmp(static_cast<const wchar_t*>(left), static_cast<const wchar_t*>(right)) == 0;
}

bool SameCall(const Call& left, const Call& right)
{
    for (std::size_t i = 0; i < std::size(left.argument); ++i)
        if (!SameArgument(left.argument[i], right.argument[i], TextOf(left.kind, i)))
            return false;
    return left.kind == right.kind && left.length == right.length &&
           left.capacity == right.capacity && left.stub == right.stub;
}

} // namespace

void Recording::Add(CallKind kind, std::vector<const void*> arguments, int length, int capacity)
{
    Call& call = calls.emplace_back(Call{kind, {}, length, capacity, nullptr});
    if (arguments.size() > std::size(call.argument))
        std::abort();
    std::copy(arguments.begin(), arguments.end(), call.argument);
}

Functions RecordingFunctions()
{
    return FunctionsOf(kRecorder);
}

Recording RecordCall(const std::function<void()>& call)
{
    Recording recording;
    const Redirected redirected(RecordingFunctions());
    const Recorder recorder(recording);
    call();
    return recording;
}

bool ReplaysAlike(const Recording& recording)
{
    Recording again;
    {
        const Recorder recorder(again);
        ReplayCalls(&kRecorder, recording.calls.data(), recording.calls.size());
    }
    return std::equal(recording.calls.begin(), recording.calls.end(), again.calls.begin(),
                      again.calls.end(), SameCall);
}

std::vector<std::string> UnrecordedImports()
{
    const std::set<std::string> services = {"dismapi.dll", "newdev.dll", "ole32.dll",
                                            "oleaut32.dll"};
    const Functions recorded = RecordingFunctions();
    std::vector<std::string> missing;
    for (const test::Import& import : test::ImportsOf(GetModuleHandleW(L"Kestro.dll")))
        if (services.count(import.dll) && !recorded.count(import.name))
            missing.push_back(import.name);
    return missing;
}

} // namespace kestro::bench
