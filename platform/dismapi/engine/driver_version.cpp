// driver_version.cpp - the Version value of a registered package.
#include "driver_version.h"

#include "driver_values.h"
#include "hive_values.h"

#include <cctype>
#include <chrono>

namespace kestro::servicing {

std::string GuidBytes(const std::string& text)
{
    std::string hex;
    for (const char c : text)
        if (std::isxdigit(static_cast<unsigned char>(c)))
            hex += c;
    if (hex.size() != 32)
        return std::string(16, '\0');
    constexpr int order[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
    std::string bytes;
    for (const int i : order)
        bytes += static_cast<char>(
            std::stoi(hex.substr(static_cast<std::size_t>(i) * 2, 2), nullptr, 16));
    return bytes;
}

// As Windows numbers them in SYSTEM_INFO.
static std::uint16_t ProcessorNumber(Architecture architecture)
{
    switch (architecture) {
    case Architecture::X86:
        return 0;
    case Architecture::Arm:
        return 5;
    case Architecture::Arm64:
        return 12;
    case Architecture::Amd64:
        break;
    }
    return 9;
}

// Dates before 1970 count as well: FILETIME begins in 1601.
static std::string DateBytes(const DriverDate& date)
{
    using namespace std::chrono;
    const year_month_day day{year(date.year), month(date.month), std::chrono::day(date.day)};
    const year_month_day first{year(1601), January, std::chrono::day(1)};
    if (!day.ok() || day < first)
        return std::string(8, '\0');
    const auto since = sys_days(day) - sys_days(first);
    return NumberBytes(static_cast<std::uint64_t>(seconds(since).count()) * 10'000'000, 8);
}

std::string VersionRecord(const DriverPackage& package, Architecture architecture)
{
    std::string record = NumberBytes(0xFF00, 2) + NumberBytes(ProcessorNumber(architecture), 2) +
                         NumberBytes(0, 4) + GuidBytes(package.classGuid) + DateBytes(package.date);
    for (auto part = package.version.rbegin(); part != package.version.rend(); ++part)
        record += NumberBytes(*part, 2);
    // Seen of one package; what it means is not known.
    constexpr std::uint64_t withCoInstaller = 0x00400000;
    return record + NumberBytes(HasCoInstaller(package) ? withCoInstaller : 0, 8);
}

} // namespace kestro::servicing
