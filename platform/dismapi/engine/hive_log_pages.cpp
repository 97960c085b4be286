// hive_log_pages.cpp - registry logs as Windows wrote them before 8.1.
#include "hive_log_pages.h"

#include "hive_header.h"

#include <bit>

namespace kestro::servicing {
namespace {

constexpr std::size_t kPage = 512;

// When the write began that the log is about. Without a header the first bin tells.
std::string_view TimeOf(std::string_view hive)
{
    constexpr std::size_t inFirstBin = 20;
    return IsHiveHeader(hive)                      ? hive.substr(hive_field::written, 8)
           : hive.size() > kHiveBins + kHiveSector ? hive.substr(kHiveBins + inFirstBin, 8)
                                                   : std::string_view();
}

bool Belongs(std::string_view log, std::string_view hive)
{
    return HiveWord(log, hive_field::sequence1) == HiveWord(log, hive_field::sequence2) &&
           log.substr(hive_field::written, 8) == TimeOf(hive);
}

// False for a log that is cut off.
bool Apply(std::string& hive, std::string_view log)
{
    constexpr std::size_t bitmap = kHiveSector + 4;
    const std::size_t binsSize = HiveWord(log, hive_field::binsSize);
    const std::size_t bytes = binsSize / kPage / 8;
    if (binsSize % kHiveBins != 0 || log.substr(kHiveSector, 4) != "DIRT" ||
        bytes > log.size() - bitmap)
        return false;
    std::size_t marked = 0;
    for (const char byte : log.substr(bitmap, bytes))
        marked += static_cast<std::size_t>(std::popcount(static_cast<unsigned char>(byte)));
    std::size_t page = (bitmap + bytes + kPage - 1) / kPage * kPage;
    if (page > log.size() || marked > (log.size() - page) / kPage)
        return false;

    hive.replace(0, kHiveSector, log.substr(0, kHiveSector));
    SetHiveWord(hive, hive_field::type, 0);
    hive.resize(kHiveBins + binsSize);
    for (std::size_t bit = 0; bit < bytes * 8; ++bit) {
        if (!(static_cast<unsigned char>(log[bitmap + bit / 8]) >> bit % 8 & 1))
            continue;
        hive.replace(kHiveBins + bit * kPage, kPage, log.substr(page, kPage));
        page += kPage;
    }
    return true;
}

} // namespace

bool ReplayPages(std::string& hive, const std::vector<std::string_view>& logs)
{
    for (const auto log : logs)
        if (Belongs(log, hive))
            return Apply(hive, log);
    return false;
}

} // namespace kestro::servicing
