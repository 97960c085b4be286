// platform.h - the scripted platform that stands in for Windows behind the loaded Kestro.dll.
//
// While a Platform exists, every platform import of Kestro.dll leads to a double. A double writes
// down that it was called and with what, then answers as the script says. An import that is neither
// listed as the platform's nor as the runtime's fails the test at once.
#pragma once

#include "support/import_table.h"
#include "support/transcript.h"

#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>
#include <windows.h>

namespace kestro::test {

// What both the doubles and the expectations go by.
struct Script {
    // The local time that the n-th reading of the clock gives, counted from 0; nothing is a clock
    // value that has no local time. The default lets a second pass between any two readings.
    std::function<std::optional<std::tm>(int reading)> clock = TickingClock;

    // The thread's last error once n events have been recorded. The default gives every event a
    // value of its own, so that the value in an ErrorCode tells where it was read.
    std::function<DWORD(size_t events)> last_error = [](size_t events) {
        return static_cast<DWORD>(100000 + events);
    };

    static std::optional<std::tm> TickingClock(int reading);
};

// A calendar date and time as _localtime64 gives it.
std::tm LocalTime(int year, int month, int day, int hour, int minute, int second);

class Platform {
  public:
    // Doubles named here are not installed: the library reaches the real function.
    explicit Platform(Script script = {}, std::vector<std::string> real = {});
    ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    // The one that the doubles work for.
    static Platform& Active();

    // Forgets everything but the doubles, whose installation costs more than most calls do.
    void Restart(Script script);

    // --- the script

    // The results of the coming calls of a platform function, in order; S_OK when none is left.
    void Answer(const std::string& function, std::vector<HRESULT> results);
    HRESULT NextAnswer(const std::string& function);

    // From now on this very pointer appears in events under a name: a proof that it was passed on
    // and not a copy of what it points to.
    void Name(const void* pointer, std::string name);
    void Unname(const void* pointer) { names_.erase(pointer); }
    // The name of a pointer; without one, its text.
    std::string Show(const wchar_t* text) const;
    std::string Show(const char* text) const;
    // The name of a pointer; without one, NULL or "unknown pointer".
    std::string ShowPointer(const void* pointer) const;

    DWORD session = 7;              // what DismOpenSession hands out
    const void* packages = nullptr; // what DismGetDrivers hands out
    UINT package_count = 0;
    int failing_allocation = 0;  // the n-th malloc from now on fails; 0: none
    int failing_string_copy = 0; // the same for SysAllocString
    int failing_conversion = 0;  // the same for MultiByteToWideChar
    int failing_narrowing = 0;   // the same for WideCharToMultiByte
    int allocations = 0;         // so far
    int string_copies = 0;
    int conversions = 0;
    int narrowings = 0;
    int live_copies = 0; // of SysAllocString

    // --- the record

    // Adds an event and sets the thread's last error by the script.
    void Record(std::string event);
    // Adds an event that leaves the last error as it is.
    void RecordQuietly(std::string event);
    // Adds what an export returned.
    void Returned(unsigned value) { Record(Format("returns %u", value)); }

    DWORD LastError() const { return last_error_; }
    void SetLastError(DWORD error);

    const Events& Recorded() const { return events_; }
    // The record without the events that begin with one of these.
    Events RecordedWithout(std::initializer_list<const char*> prefixes) const;
    const Script& GetScript() const { return script_; }

    // The clock, as the doubles read it.
    int ReadClock() { return ++clock_readings_ - 1; }

  private:
    void Install(const std::vector<std::string>& real);

    Script script_;
    std::map<std::string, std::deque<HRESULT>> answers_;
    std::map<const void*, std::string> names_;
    Events events_;
    DWORD last_error_ = 0;
    int clock_readings_ = 0;
    std::vector<std::pair<Import, void*>> originals_;
};

// Doubles register themselves by import name: static const Doubles mine{{"Function", MyDouble}};
class Doubles {
  public:
    struct Entry {
        template <typename Result, typename... Arguments>
        Entry(const char* import_name, Result (*double_function)(Arguments...))
            : name(import_name), function(reinterpret_cast<void*>(double_function))
        {
        }
        const char* name;
        void* function;
    };
    Doubles(std::initializer_list<Entry> entries);

    // The double of an import, or null.
    static void* Find(const std::string& name);
};

} // namespace kestro::test
