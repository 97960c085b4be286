// own_cost.cpp - each export against a floor that makes the same platform calls with texts made
// beforehand.
#include "own_cost.h"

#include "allocations.h"
#include "disk_stubs.h"
#include "kestro.h"
#include "measure.h"
#include "platform_calls.h"
#include "recording.h"

#include <cstdio>
#include <functional>
#include <optional>
#include <stdexcept>
#include <vector>

namespace kestro::bench {
namespace {

const wchar_t kImage[] = L"C:\\images\\install.wim";
const wchar_t kMount[] = L"C:\\mount";
const wchar_t kLog[] = L"C:\\logs\\dism.log";
const wchar_t kInf[] = L"C:\\drivers\\network adapter\\net.inf";
const wchar_t* const kInfs[8] = {kInf, kInf, kInf, kInf, kInf, kInf, kInf, kInf};
const wchar_t kMissing[] = L"C:\\no such folder\\disk.vhd";

struct Export {
    const char* name;
    std::function<void()> call;
};

std::vector<Export> ImageExports(const char* file, const wchar_t* fileW)
{
    return {
        {"MountWimImage", [=] { MountWimImage(kImage, kMount, kLog, file); }},
        {"MountWimImageW", [=] { MountWimImageW(kImage, kMount, kLog, fileW); }},
        {"UnmountWimImage", [=] { UnmountWimImage(kMount, 0, kLog, file); }},
        {"UnmountWimImageW", [=] { UnmountWimImageW(kMount, 0, kLog, fileW); }},
        {"AddDriver", [=] { AddDriver(kMount, kInf, kLog, file); }},
        {"AddDriverW", [=] { AddDriverW(kMount, kInf, kLog, fileW); }},
        {"RemoveDriver", [=] { RemoveDriver(kMount, kInf, kLog, file); }},
        {"RemoveDriverW", [=] { RemoveDriverW(kMount, kInf, kLog, fileW); }},
        {"AddDriverList", [=] { AddDriverList(kMount, kInfs, kLog, file); }},
        {"AddDriverListW", [=] { AddDriverListW(kMount, kInfs, kLog, fileW); }},
        {"GetDrivers", [=] { GetDrivers(kMount, kLog, file); }},
        {"GetDriversW", [=] { GetDriversW(kMount, kLog, fileW); }},
        {"GetDriverInfo", [=] { GetDriverInfo(kMount, kInf, kLog, file); }},
        {"GetDriverInfoW", [=] { GetDriverInfoW(kMount, kInf, kLog, fileW); }},
        {"WriteTest", [=] { WriteTest(file); }},
        {"WriteTestW", [=] { WriteTestW(fileW); }},
    };
}

std::vector<Export> DiskAndDeviceExports(const char* file)
{
    return {
        {"CleanDisk", [=] { CleanDisk(kUnallocatedDisk, 1, 0, 0, file); }},
        {"CleanDisk, pack", [=] { CleanDisk(kPackDisk, 1, 0, 0, file); }},
        {"OnlineDisk", [] { OnlineDisk(kUnallocatedDisk); }},
        {"OnlineDisk, pack", [] { OnlineDisk(kPackDisk); }},
        {"OfflineDisk", [] { OfflineDisk(kUnallocatedDisk); }},
        {"OfflineDisk, pack", [] { OfflineDisk(kPackDisk); }},
        {"InfInstall", [] { InfInstall(kInf); }},
        {"OpenVdFile", [] { OpenVdFile(kMissing); }},
        {"OpenPhDrive", [] { OpenPhDrive(kMissing); }},
    };
}

struct Row {
    std::string name;
    Recording recording;
    std::optional<Comparison> real; // of an export that does something there
    Comparison empty;
    Allocations allocations;

    double Own() const { return empty.library.median - empty.floor.median; }
    // A step write is allowed twice what a log line is; without either the whole call counts as one.
    double OwnPerLine() const
    {
        const int units = recording.lines + 2 * recording.steps;
        return units > 0 ? Own() / units : Own();
    }
    // What the ratio is where other work on the machine does not blur it.
    double ByOwn() const { return 1 + Own() / real->floor.median; }
    long long Mallocs() const
    {
        const auto found = allocations.find("malloc");
        return found == allocations.end() ? 0 : found->second;
    }
    long long OtherAllocations() const
    {
        long long all = 0;
        for (const auto& [allocator, count] : allocations)
            all += count;
        return all - Mallocs();
    }
};

Row Measure(const Export& operation, bool quick, const std::wstring& file)
{
    Row row = {operation.name, RecordCall(operation.call), {}, {}, {}};
    const std::vector<Call>& calls = row.recording.calls;
    if (calls.empty() || !ReplaysAlike(row.recording))
        throw std::runtime_error("the floor of " + row.name + " does not make its calls");

    const auto compare = [&](const Platform& platform, auto reset, int rounds, int repeats) {
        const Redirected redirected(FunctionsOf(platform));
        const auto floor = [&] { ReplayCalls(&platform, calls.data(), calls.size()); };
        return Compare(operation.call, floor, reset, rounds, repeats);
    };
    const bool opens = calls.front().kind == CALL_OPEN;
    if (row.recording.writes > 0 || opens)
        row.real = compare(
            RealPlatform(), [&] { DeleteFileW(file.c_str()); }, quick ? 9 : 401, opens ? 100 : 1);
    row.empty = compare(
        EmptyPlatform(), [] {}, quick ? 9 : 41, 300);
    row.allocations = CountAllocations(operation.call);
    return row;
}

void Print(const Row& row)
{
    std::printf("%-17s ", row.name.c_str());
    if (row.real) {
        const Spread& ratio = row.real->ratio;
        std::printf("%8.3f  (%.3f to %.3f) %7.4f", ratio.median, ratio.low, ratio.high,
                    row.ByOwn());
    } else {
        std::printf("%8s  %16s %7s", "-", "", "-");
    }
    std::printf(" %7.3f %6d %6d %9.3f %8lld %7lld %12d\n", row.Own(), row.recording.lines,
                row.recording.steps, row.OwnPerLine(), row.Mallocs(), row.OtherAllocations(),
                row.recording.conversions);
}

nlohmann::json JsonOf(const Row& row)
{
    nlohmann::json json = {{"export", row.name},
                           {"library_us_empty", JsonOf(row.empty.library)},
                           {"floor_us_empty", JsonOf(row.empty.floor)},
                           {"own_us", row.Own()},
                           {"own_us_per_line", row.OwnPerLine()},
                           {"lines", row.recording.lines},
                           {"steps", row.recording.steps},
                           {"platform_calls", row.recording.calls.size()},
                           {"mallocs", row.Mallocs()},
                           {"allocations", row.allocations},
                           {"conversions", row.recording.conversions}};
    if (row.real) {
        json["ratio_real_writer"] = JsonOf(row.real->ratio);
        json["library_us_real_writer"] = JsonOf(row.real->library);
        json["floor_us_real_writer"] = JsonOf(row.real->floor);
        json["ratio_by_own_cost"] = row.ByOwn();
    }
    return json;
}

} // namespace

nlohmann::json MeasureOwnCost(bool quick, const std::wstring& resultFile)
{
    for (const std::string& name : UnrecordedImports())
        throw std::runtime_error("no recording would show a call of " + name);

    std::printf(
        "\nOwn cost: the library against a floor that makes the same platform calls\n\n"
        "                  -- real profile writer, ratio --   -- empty platform and writer --\n"
        "export            measured  (quartiles)      by own  own us  lines  steps  us/line*  "
        "mallocs  others  conversions\n");
    const std::string narrow(resultFile.begin(), resultFile.end());
    std::vector<Export> exports = ImageExports(narrow.c_str(), resultFile.c_str());
    for (const Export& operation : DiskAndDeviceExports(narrow.c_str()))
        exports.push_back(operation);

    MakePackages(10);
    nlohmann::json rows = nlohmann::json::array();
    for (const Export& operation : exports) {
        const Row row = Measure(operation, quick, resultFile);
        Print(row);
        rows.push_back(JsonOf(row));
    }
    std::printf(
        "* a step write counts as two lines, a call without either as one; the goal is at most "
        "1.000\n"
        "by own: 1 + own us / the floor's time with the real writer, or really opening\n"
        "others: allocations that are not malloc's\n");
    return rows;
}

} // namespace kestro::bench
