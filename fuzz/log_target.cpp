// log_target.cpp - the log of a registry hive that was never written into it.
#include "hive_file.h"
#include "hive_header.h"
#include "hive_values.h"
#include "marvin_hash.h"
#include "minimal_hive.h"
#include "scratch.h"
#include "servicing_error.h"
#include "targets.h"

namespace kestro::fuzz {
namespace {

using namespace servicing;

// A fuzzer guesses neither the header's checksum nor the hashes of entries.
std::string WithHashes(std::string log)
{
    constexpr std::uint64_t seed = 0x82EF4D887A4E55C5;
    if (log.size() < kHiveSector)
        return log;
    SetHiveChecksum(log);
    std::size_t entry = kHiveSector;
    while (entry + 40 <= log.size() && log.compare(entry, 4, "HvLE") == 0) {
        const std::size_t size = HiveWord(log, entry + 4);
        if (size < 40 || size > log.size() - entry)
            break;
        const auto hash = [&](std::size_t from, std::size_t length) {
            return NumberBytes(MarvinHash(std::string_view(log).substr(from, length), seed), 8);
        };
        log.replace(entry + 24, 8, hash(entry + 40, size - 40));
        log.replace(entry + 32, 8, hash(entry, 32));
        entry += size;
    }
    return log;
}

std::string MarkedHive()
{
    std::string hive = test::MinimalHive();
    SetHiveWord(hive, hive_field::sequence1, HiveWord(hive, hive_field::sequence2) + 1);
    SetHiveChecksum(hive);
    return hive;
}

} // namespace

void HiveLog(const std::string& input)
{
    const Scratch scratch;
    const std::string log = WithHashes(input);
    const std::string marked = MarkedHive();
    WriteFile(scratch / "SYSTEM", marked);
    WriteFile(scratch / "SYSTEM.LOG1", log);
    try {
        HiveFile hive(scratch / "SYSTEM");
        hive.CheckForChanges({"A"});
        hive.Set(hive.Make("A"), {NumberValue("B", 1)});
        hive.Save(scratch / "saved");
        HiveFile saved(scratch / "saved");
        Require(saved.Value(saved.Find("A"), "B").has_value(),
                "a saved hive has no use for its log");
    } catch (const ServicingError&) {
    }
    Require(ReadFile(scratch / "SYSTEM") == marked && ReadFile(scratch / "SYSTEM.LOG1") == log,
            "a hive and its log that are opened stay as they are");
}

} // namespace kestro::fuzz
