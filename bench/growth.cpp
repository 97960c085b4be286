// growth.cpp - GetDrivers with more and more packages: what the library does for each of them, and what
// the platform's profile writer does, which rewrites the whole file for every key.
#include "growth.h"

#include "kestro.h"
#include "measure.h"
#include "platform_calls.h"
#include "recording.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>

namespace kestro::bench {
namespace {

// A ResultFile as the profile writer lays it out.
class ResultText {
  public:
    void Write(const Call& call)
    {
        const auto text = [&](int i) {
            return std::string(static_cast<const char*>(call.argument[i]));
        };
        const auto [place, isNew] = places_.emplace(text(0), sections_.size());
        if (isNew)
            sections_.push_back({text(0), {}, {}});
        Section& section = sections_[place->second];
        const auto [key, isNewKey] = section.places.emplace(text(1), section.lines.size());
        if (isNewKey)
            section.lines.emplace_back();
        section.lines[key->second] = text(1) + "=" + text(2);
    }

    void Save(const std::string& path) const
    {
        std::ofstream file(path, std::ios::binary);
        for (const Section& section : sections_) {
            file << "[" << section.name << "]\r\n";
            for (const std::string& line : section.lines)
                file << line << "\r\n";
        }
    }

  private:
    struct Section {
        std::string name;
        std::vector<std::string> lines;
        std::map<std::string, std::size_t> places;
    };
    std::vector<Section> sections_;
    std::map<std::string, std::size_t> places_;
};

struct WriterCost {
    double usPerPackage = 0;
    unsigned long bytes = 0;
};

unsigned long BytesOf(const std::string& path)
{
    WIN32_FILE_ATTRIBUTE_DATA data = {};
    GetFileAttributesExA(path.c_str(), GetFileExInfoStandard, &data);
    return data.nFileSizeLow;
}

// What the writer takes for the last packages of the listing, the others being in the file already.
WriterCost CostOfLastPackages(const Recording& recording, UINT count, const std::string& path)
{
    constexpr UINT last = 5;
    const std::vector<Call>& calls = recording.calls;
    const std::size_t done = calls.size() - calls.size() * last / count;
    ResultText text;
    for (std::size_t i = 0; i < done; ++i)
        if (calls[i].kind == CALL_WRITE_A)
            text.Write(calls[i]);

    const Platform& writer = RealPlatform();
    std::vector<double> rounds;
    for (int i = 0; i < 5; ++i) {
        text.Save(path);
        const double start = Microseconds();
        ReplayCalls(&writer, calls.data() + done, calls.size() - done);
        rounds.push_back((Microseconds() - start) / last);
    }
    std::sort(rounds.begin(), rounds.end());
    return {rounds[rounds.size() / 2], BytesOf(path)};
}

// The listing's floor. It replays the calls of the first ten packages over and over: the processor's caches
// do not hold the list for ten thousand, and a library needs none.
class ListingFloor {
  public:
    ListingFloor(const Recording& recording, UINT count) : calls_(recording.calls), count_(count)
    {
        std::vector<std::size_t> copies; // two for each package
        for (std::size_t i = 0; i < calls_.size() && copies.size() < 3; ++i)
            if (calls_[i].kind == CALL_COPY_STRING)
                copies.push_back(i);
        head_ = copies.at(0);
        package_ = copies.at(2) - head_;
        tail_ = calls_.size() - head_ - package_ * count;
    }

    void operator()() const
    {
        const Platform& platform = EmptyPlatform();
        ReplayCalls(&platform, calls_.data(), head_);
        for (UINT done = 0; done < count_; done += 10)
            ReplayCalls(&platform, calls_.data() + head_, 10 * package_);
        ReplayCalls(&platform, calls_.data() + calls_.size() - tail_, tail_);
    }

  private:
    const std::vector<Call>& calls_;
    UINT count_;
    // How many calls there are before the packages, for each and after them.
    std::size_t head_, package_, tail_;
};

double OwnCost(const Recording& recording, const std::function<void()>& listing, UINT count,
               bool quick)
{
    const Redirected redirected(FunctionsOf(EmptyPlatform()));
    const Comparison empty = Compare(
        listing, ListingFloor(recording, count), [] {}, quick ? 5 : 15, count >= 1000 ? 2 : 50);
    return (empty.library.median - empty.floor.median) / count;
}

double SecondsOfListing(const std::function<void()>& listing, const std::string& path)
{
    const Redirected redirected(FunctionsOf(RealPlatform()));
    DeleteFileA(path.c_str());
    const double start = Microseconds();
    listing();
    return (Microseconds() - start) / 1e6;
}

} // namespace

nlohmann::json MeasureGrowth(bool quick, const std::string& resultFile)
{
    std::printf("\nGrowth: GetDrivers with more and more packages\n\n"
                "              ---- us for a package ----                        seconds of\n"
                "packages      library   writer, at the end   bytes of file   the whole call\n");
    nlohmann::json rows = nlohmann::json::array();
    const auto listing = [&] { GetDrivers(L"C:\\mount", L"C:\\dism.log", resultFile.c_str()); };
    for (const UINT count : {10u, 100u, 1000u, 10000u}) {
        MakePackages(count);
        const Recording recording = RecordCall(listing);
        const double own = OwnCost(recording, listing, count, quick);
        const WriterCost writer = CostOfLastPackages(recording, count, resultFile);
        nlohmann::json row = {{"packages", count},
                              {"own_us_per_package", own},
                              {"writer_us_per_package", writer.usPerPackage},
                              {"writes", recording.writes},
                              {"bytes", writer.bytes}};
        std::printf("%8u %12.3f %20.0f %15lu", count, own, writer.usPerPackage, writer.bytes);
        // Beyond that a call takes longer than anybody waits for a bench.
        if (count <= (quick ? 100u : 1000u)) {
            row["seconds"] = SecondsOfListing(listing, resultFile);
            std::printf(" %16.2f\n", row["seconds"].get<double>());
        } else {
            std::printf(" %16s\n", "not run");
        }
        rows.push_back(row);
    }
    return rows;
}

} // namespace kestro::bench
