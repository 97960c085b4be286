// hive_log.cpp - brings a registry hive up to date from its log files.
#include "hive_log.h"

#include "file_system.h"
#include "hive_header.h"
#include "hive_log_entries.h"
#include "hive_log_pages.h"
#include "image_tree.h"
#include "servicing_error.h"

#include <vector>

namespace fs = std::filesystem;

namespace kestro::servicing {
namespace {

bool IsMarked(std::string_view hive)
{
    return !IsHiveHeader(hive) ||
           HiveWord(hive, hive_field::sequence1) != HiveWord(hive, hive_field::sequence2);
}

// The hive's logs that hold anything, in the order of their names.
std::vector<std::string> ReadLogs(const fs::path& file)
{
    std::vector<std::string> logs;
    for (const char* ending : {".LOG1", ".LOG2", ".LOG"}) {
        const auto log = FindPath(file.parent_path(), file.filename().string() + ending);
        std::error_code ignored;
        if (log && fs::is_regular_file(*log, ignored))
            logs.push_back(ReadWholeFile(*log));
        if (!logs.empty() && logs.back().size() <= kHiveSector)
            logs.pop_back();
    }
    return logs;
}

// A page that a log brought may have broken what leads through the hive: its bins, one behind the other.
bool BinsAreWhole(std::string_view hive)
{
    const std::size_t end = kHiveBins + HiveWord(hive, hive_field::binsSize);
    std::size_t bin = kHiveBins;
    while (bin < end && end <= hive.size()) {
        const std::size_t size = HiveWord(hive, bin + 8);
        if (hive.substr(bin, 4) != "hbin" || HiveWord(hive, bin + 4) != bin - kHiveBins ||
            size < kHiveBins || size % kHiveBins != 0 || size > end - bin)
            return false;
        bin += size;
    }
    return bin == end;
}

bool Replay(std::string& hive, const std::vector<std::string>& logs)
{
    std::vector<std::string_view> withEntries;
    std::vector<std::string_view> withPages;
    for (const std::string_view log : logs)
        if (IsHiveHeader(log))
            (log.substr(kHiveSector, 4) == "HvLE" ? withEntries : withPages).push_back(log);
    return ReplayEntries(hive, withEntries) || ReplayPages(hive, withPages);
}

} // namespace

HiveContent ReadHive(const fs::path& file)
{
    HiveContent content{ReadWholeFile(file), false};
    const auto refuse = [&](const std::string& reason) {
        return ServicingError(code::bad_hive, file.string() + reason);
    };
    if (content.bytes.size() >= kHiveSector && !IsMarked(content.bytes))
        return content;
    const auto logs = ReadLogs(file);
    if (logs.empty())
        throw refuse(content.bytes.starts_with("regf")
                         ? " has changes in its log that were never written into it, and no log"
                         : " is not a registry hive");
    if (content.bytes.size() < kHiveBins)
        content.bytes.resize(kHiveBins);
    if (!Replay(content.bytes, logs))
        throw refuse(" has changes in its log that were never written into it, and the log is "
                     "damaged or another hive's");
    SetHiveChecksum(content.bytes);
    if (!BinsAreWhole(content.bytes))
        throw refuse(" is damaged, or its log is");
    content.fromLog = true;
    return content;
}

} // namespace kestro::servicing
