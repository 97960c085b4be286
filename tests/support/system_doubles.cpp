// system_doubles.cpp - doubles of the profile writers, the last error, text conversion, COM
// strings, the clock, the console and memory.
#include "support/platform.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <oleauto.h>
#include <stdexcept>

namespace kestro::test {

namespace {

// --- profile writers ---

BOOL WINAPI WriteProfileA(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR file)
{
    Platform& platform = Platform::Active();
    platform.Record(Format("write A [%s] %s = %s in %s", Quote(section).c_str(), Quote(key).c_str(),
                           Quote(value).c_str(), platform.Show(file).c_str()));
    return FALSE;
}

BOOL WINAPI WriteProfileW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR file)
{
    Platform& platform = Platform::Active();
    platform.Record(Format("write W [%s] %s = %s in %s", Quote(section).c_str(), Quote(key).c_str(),
                           Quote(value).c_str(), platform.Show(file).c_str()));
    return FALSE;
}

// --- last error ---

DWORD WINAPI LastError()
{
    Platform::Active().RecordQuietly("GetLastError");
    return Platform::Active().LastError();
}

void WINAPI ChangeLastError(DWORD error)
{
    Platform::Active().SetLastError(error);
}

// --- text conversion ---

bool FailsNow(int& failing, int& count)
{
    ++count;
    return failing > 0 && --failing == 0;
}

// The room that the last length query asked for, shown when a conversion is offered another one.
int asked_room = 0;

std::string ShowRoom(const void* buffer, int room)
{
    if (!buffer)
        return Format("NULL, %d", room);
    return room == asked_room ? "buffer" : Format("buffer of %d", room);
}

int WINAPI ToWide(UINT page, DWORD flags, LPCCH text, int length, LPWSTR buffer, int room)
{
    Platform& platform = Platform::Active();
    const bool fails = FailsNow(platform.failing_conversion, platform.conversions);
    const std::string shown =
        length < 0 ? Quote(text) + Format(", %d", length)
                   : Quote(text, static_cast<size_t>(length > 0 ? length - 1 : 0)) +
                         (length > 0 && text[length - 1] == '\0' ? " and its zero" : " cut off");
    platform.Record(Format("MultiByteToWideChar(%u, %lu, %s, %s)%s", page, flags, shown.c_str(),
                           ShowRoom(buffer, room).c_str(), fails ? " fails" : ""));
    const int result = fails ? 0 : MultiByteToWideChar(page, flags, text, length, buffer, room);
    if (!buffer)
        asked_room = result;
    return result;
}

int WINAPI ToNarrow(UINT page, DWORD flags, LPCWCH text, int length, LPSTR buffer, int room,
                    LPCCH default_char, LPBOOL default_used)
{
    Platform& platform = Platform::Active();
    const bool fails = FailsNow(platform.failing_narrowing, platform.narrowings);
    const bool whole = length < 0 || (text && length > 0 && text[length - 1] == L'\0');
    platform.Record(Format("WideCharToMultiByte(%u, %lu, %s%s, %s%s%s)%s", page, flags,
                           platform.Show(text).c_str(), whole ? " and its zero" : " cut off",
                           ShowRoom(buffer, room).c_str(), default_char ? ", default" : "",
                           default_used ? ", used" : "", fails ? " fails" : ""));
    const int result =
        fails ? 0 : WideCharToMultiByte(page, flags, text, length, buffer, room, nullptr, nullptr);
    if (!buffer)
        asked_room = result;
    return result;
}

// --- COM strings ---

BSTR WINAPI CopyString(const OLECHAR* text)
{
    if (!text)
        return nullptr;
    Platform& platform = Platform::Active();
    const bool fails = FailsNow(platform.failing_string_copy, platform.string_copies);
    const std::string shown = platform.Show(text);
    platform.Record("SysAllocString(" + shown + ')' + (fails ? " fails" : ""));
    if (fails)
        return nullptr;
    const BSTR copy = SysAllocString(text);
    platform.Name(copy, "copy of " + shown);
    ++platform.live_copies;
    return copy;
}

void WINAPI FreeString(BSTR copy)
{
    if (!copy)
        return;
    Platform& platform = Platform::Active();
    platform.Record("SysFreeString(" + platform.Show(copy) + ')');
    platform.Unname(copy);
    --platform.live_copies;
    SysFreeString(copy);
}

// --- clock ---

int last_reading = 0;
constexpr __time64_t clock_start = 1'600'000'000;

__time64_t __cdecl ReadTime(__time64_t* slot)
{
    Platform& platform = Platform::Active();
    platform.Record("_time64");
    last_reading = platform.ReadClock();
    const __time64_t now = clock_start + last_reading;
    if (slot)
        *slot = now;
    return now;
}

std::tm* __cdecl ToLocalTime(const __time64_t* time)
{
    static std::tm local;
    Platform& platform = Platform::Active();
    platform.Record(*time == clock_start + last_reading ? "_localtime64"
                                                        : "_localtime64 of another time");
    const std::optional<std::tm> scripted = platform.GetScript().clock(last_reading);
    if (!scripted)
        return nullptr;
    local = *scripted;
    return &local;
}

// --- console ---

// The platform's own formatting rules: %s in a wide format is wide text.
int __cdecl PrintWide(const wchar_t* format, va_list arguments)
{
    static std::vector<wchar_t> text(65536);
    const int length = _vsnwprintf(text.data(), text.size() - 1, format, arguments);
    Platform::Active().Record("console wide " + Quote(text.data()));
    return length;
}

int __cdecl PrintNarrow(const char* format, va_list arguments)
{
    static std::vector<char> text(65536);
    const int length = _vsnprintf(text.data(), text.size() - 1, format, arguments);
    Platform::Active().Record("console narrow " + Quote(text.data()));
    return length;
}

int __cdecl Flush(FILE* stream)
{
    if (stream != stdout)
        Platform::Active().Record("fflush of another stream");
    return 0;
}

// --- memory ---

void* __cdecl Allocate(size_t size)
{
    Platform& platform = Platform::Active();
    return FailsNow(platform.failing_allocation, platform.allocations) ? nullptr
                                                                       : std::malloc(size);
}

const Doubles doubles{
    {"WritePrivateProfileStringA", WriteProfileA},
    {"WritePrivateProfileStringW", WriteProfileW},
    {"GetLastError", LastError},
    {"SetLastError", ChangeLastError},
    {"MultiByteToWideChar", ToWide},
    {"WideCharToMultiByte", ToNarrow},
    {"SysAllocString", CopyString},
    {"SysFreeString", FreeString},
    {"_time64", ReadTime},
    {"_localtime64", ToLocalTime},
    {"vwprintf", PrintWide},
    {"vprintf", PrintNarrow},
    {"fflush", Flush},
    {"malloc", Allocate},
};

} // namespace

} // namespace kestro::test
