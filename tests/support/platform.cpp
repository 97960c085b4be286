// platform.cpp - installs the doubles, keeps the script and the record.
#include "support/platform.h"

#include "support/import_lists.h"
#include "support/kestro_library.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kestro::test {

namespace {

Platform* active = nullptr;

std::map<std::string, void*>& RegisteredDoubles()
{
    static std::map<std::string, void*> doubles;
    return doubles;
}

// A trap for each import that may not be reached or has no double in this test program.
constexpr size_t trap_count = 64;
std::array<std::string, trap_count> trapped;

template <size_t Index>
void* Trap()
{
    Platform::Active().Record("unexpected call of " + trapped[Index]);
    return nullptr;
}

template <size_t... Index>
constexpr std::array<void* (*)(), trap_count> MakeTraps(std::index_sequence<Index...>)
{
    return {&Trap<Index>...};
}

constexpr auto traps = MakeTraps(std::make_index_sequence<trap_count>());

bool Listed(const std::vector<ListedImport>& list, const Import& import)
{
    return std::any_of(list.begin(), list.end(), [&](const ListedImport& listed) {
        return listed.dll == import.dll && listed.name == import.name;
    });
}

} // namespace

std::tm LocalTime(int year, int month, int day, int hour, int minute, int second)
{
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    return time;
}

std::optional<std::tm> Script::TickingClock(int reading)
{
    return LocalTime(2021, 3, 5, 14 + reading / 3600, reading / 60 % 60, reading % 60);
}

Platform::Platform(Script script, std::vector<std::string> real) : script_(std::move(script))
{
    active = this;
    Install(real);
}

Platform::~Platform()
{
    for (const auto& [import, original] : originals_)
        Redirect(import, original);
    active = nullptr;
}

Platform& Platform::Active()
{
    if (!active)
        abort();
    return *active;
}

void Platform::Restart(Script script)
{
    script_ = std::move(script);
    answers_.clear();
    names_.clear();
    events_.clear();
    last_error_ = 0;
    clock_readings_ = 0;
    session = 7;
    packages = nullptr;
    package_count = 0;
    failing_allocation = failing_string_copy = failing_conversion = failing_narrowing = 0;
    allocations = string_copies = conversions = narrowings = live_copies = 0;
}

void Platform::Install(const std::vector<std::string>& real)
{
    size_t traps_used = 0;
    for (const Import& import : ImportsOf(KestroLibrary::Get().Module())) {
        if (std::find(real.begin(), real.end(), import.name) != real.end())
            continue;
        void* function = Doubles::Find(import.name);
        if (!function &&
            (Listed(PlatformImports(), import) || Listed(UnreachedImports(), import))) {
            trapped.at(traps_used) = import.name;
            function = reinterpret_cast<void*>(traps.at(traps_used++));
        }
        if (function) {
            originals_.emplace_back(import, *import.slot);
            Redirect(import, function);
        }
    }
}

void Platform::Answer(const std::string& function, std::vector<HRESULT> results)
{
    answers_[function].assign(results.begin(), results.end());
}

HRESULT Platform::NextAnswer(const std::string& function)
{
    std::deque<HRESULT>& answers = answers_[function];
    if (answers.empty())
        return S_OK;
    const HRESULT answer = answers.front();
    answers.pop_front();
    return answer;
}

void Platform::Name(const void* pointer, std::string name)
{
    if (pointer)
        names_[pointer] = std::move(name);
}

std::string Platform::Show(const wchar_t* text) const
{
    const auto named = names_.find(text);
    return named == names_.end() ? Quote(text) : named->second;
}

std::string Platform::Show(const char* text) const
{
    const auto named = names_.find(text);
    return named == names_.end() ? Quote(text) : named->second;
}

std::string Platform::ShowPointer(const void* pointer) const
{
    if (!pointer)
        return "NULL";
    const auto named = names_.find(pointer);
    return named == names_.end() ? "unknown pointer" : named->second;
}

void Platform::Record(std::string event)
{
    events_.push_back(std::move(event));
    last_error_ = script_.last_error(events_.size());
}

void Platform::RecordQuietly(std::string event)
{
    events_.push_back(std::move(event));
}

void Platform::SetLastError(DWORD error)
{
    // The C++ runtime saves the last error around its thread storage: no reading of the library's.
    if (!events_.empty() && events_.back() == "GetLastError" && error == last_error_) {
        events_.pop_back();
        return;
    }
    last_error_ = error;
    RecordQuietly(Format("SetLastError(%lu)", error));
}

Events Platform::RecordedWithout(std::initializer_list<const char*> prefixes) const
{
    Events kept = events_;
    std::erase_if(kept, [&](const std::string& event) {
        return std::any_of(prefixes.begin(), prefixes.end(),
                           [&](const char* prefix) { return event.starts_with(prefix); });
    });
    return kept;
}

Doubles::Doubles(std::initializer_list<Entry> entries)
{
    for (const Entry& entry : entries)
        RegisteredDoubles()[entry.name] = entry.function;
}

void* Doubles::Find(const std::string& name)
{
    const auto found = RegisteredDoubles().find(name);
    return found == RegisteredDoubles().end() ? nullptr : found->second;
}

} // namespace kestro::test
