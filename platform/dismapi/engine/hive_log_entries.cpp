// hive_log_entries.cpp - registry logs as Windows 8.1 and later write them.
#include "hive_log_entries.h"

#include "hive_header.h"
#include "marvin_hash.h"

#include <algorithm>
#include <optional>

namespace kestro::servicing {
namespace {

constexpr std::uint64_t kSeed = 0x82EF4D887A4E55C5;
constexpr std::size_t kEntryHeader = 40;

struct Entry {
    std::string_view bytes; // begins with "HvLE"

    std::uint32_t Flags() const { return HiveWord(bytes, 8); }
    std::uint32_t Sequence() const { return HiveWord(bytes, 12); }
    std::uint32_t BinsSize() const { return HiveWord(bytes, 16); }
    std::uint32_t Pages() const { return HiveWord(bytes, 20); }
    bool HashesFit() const;
    bool Apply(std::string& hive) const;
};

std::uint64_t HashAt(std::string_view bytes, std::size_t offset)
{
    return std::uint64_t{HiveWord(bytes, offset + 4)} << 32 | HiveWord(bytes, offset);
}

bool Entry::HashesFit() const
{
    return MarvinHash(bytes.substr(kEntryHeader), kSeed) == HashAt(bytes, 24) &&
           MarvinHash(bytes.substr(0, 32), kSeed) == HashAt(bytes, 32);
}

// False for an entry whose pages are not where it says.
bool Entry::Apply(std::string& hive) const
{
    const std::size_t pages = Pages();
    const std::size_t binsSize = BinsSize();
    std::size_t reach = HiveWord(hive, hive_field::binsSize);
    std::size_t data = kEntryHeader + pages * 8;
    if (binsSize % kHiveBins != 0 || data > bytes.size())
        return false;
    for (std::size_t i = 0; i < pages; ++i) {
        const std::size_t offset = HiveWord(bytes, kEntryHeader + i * 8);
        const std::size_t size = HiveWord(bytes, kEntryHeader + i * 8 + 4);
        if (size > bytes.size() - data || offset > binsSize || size > binsSize - offset)
            return false;
        data += size;
        reach = std::max(reach, offset + size);
    }
    if (binsSize > reach) // a hive grows by bins that its entry holds
        return false;

    hive.resize(kHiveBins + binsSize);
    data = kEntryHeader + pages * 8;
    for (std::size_t i = 0; i < pages; ++i) {
        const std::size_t offset = HiveWord(bytes, kEntryHeader + i * 8);
        const std::size_t size = HiveWord(bytes, kEntryHeader + i * 8 + 4);
        hive.replace(kHiveBins + offset, size, bytes.substr(data, size));
        data += size;
    }
    SetHiveWord(hive, hive_field::binsSize, BinsSize());
    SetHiveWord(hive, hive_field::flags,
                (HiveWord(hive, hive_field::flags) & ~1u) | (Flags() & 1u));
    SetHiveWord(hive, hive_field::sequence1, Sequence());
    SetHiveWord(hive, hive_field::sequence2, Sequence());
    return true;
}

// The entry at `offset`; nothing where the log holds none any more.
std::optional<Entry> EntryAt(std::string_view log, std::size_t offset)
{
    if (offset > log.size() || log.size() - offset < kEntryHeader ||
        log.substr(offset, 4) != "HvLE")
        return std::nullopt;
    const std::size_t size = HiveWord(log, offset + 4);
    return Entry{log.substr(offset, std::max<std::size_t>(size, kEntryHeader))};
}

bool IsWhole(const Entry& entry)
{
    const std::size_t size = HiveWord(entry.bytes, 4);
    return size >= kEntryHeader && size % kHiveSector == 0 && size == entry.bytes.size() &&
           entry.HashesFit();
}

enum class Outcome { Nothing, Applied, Damaged };

// Applies the entries numbered `next` and up, as far as they go on without a gap. What lies behind them
// is left of an earlier round of the log.
Outcome ApplyFrom(std::string& hive, std::string_view log, std::uint32_t& next)
{
    Outcome outcome = Outcome::Nothing;
    std::size_t offset = kHiveSector;
    for (auto entry = EntryAt(log, offset); entry && entry->Sequence() == next;
         entry = EntryAt(log, offset)) {
        if (!IsWhole(*entry) || !entry->Apply(hive))
            return Outcome::Damaged;
        outcome = Outcome::Applied;
        offset += entry->bytes.size();
        ++next;
    }
    return outcome;
}

std::uint32_t FirstNumber(std::string_view log)
{
    return HiveWord(log, hive_field::sequence1);
}

// The hive's own header is lost: the log with the latest entries has a copy.
void TakeHeader(std::string& hive, std::string_view log)
{
    hive.replace(0, kHiveSector, log.substr(0, kHiveSector));
    SetHiveWord(hive, hive_field::type, 0);
}

} // namespace

bool ReplayEntries(std::string& hive, const std::vector<std::string_view>& all)
{
    std::vector<std::string_view> logs = all;
    std::sort(logs.begin(), logs.end(),
              [](auto left, auto right) { return FirstNumber(left) < FirstNumber(right); });
    if (!IsHiveHeader(hive) && !logs.empty()) {
        logs = {logs.back()};
        TakeHeader(hive, logs.back());
        SetHiveWord(hive, hive_field::sequence2, FirstNumber(logs.back()));
    }
    const std::uint32_t written = HiveWord(hive, hive_field::sequence2);
    std::optional<std::uint32_t> next;
    for (const auto log : logs) {
        const bool continues = next ? FirstNumber(log) == *next : FirstNumber(log) >= written;
        if (!continues)
            continue;
        std::uint32_t number = FirstNumber(log);
        const Outcome outcome = ApplyFrom(hive, log, number);
        if (outcome == Outcome::Damaged)
            return false;
        if (outcome == Outcome::Applied)
            next = number;
    }
    return next.has_value();
}

} // namespace kestro::servicing
