// image_extraction.cpp - fills the directory of a mount.
//
// libwim extracts on one processor. Here several open image files each extract a part of the image's
// files and all of its directories. Which of them ends first makes no difference: each sets the times of
// all directories when it has done everything else.
#include "image_extraction.h"

#include "servicing_error.h"
#include "worker.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <numeric>
#include <thread>
#include <vector>

namespace kestro::servicing {
namespace {

// How far the parts have come, from their threads to the one that waits for them.
class PartsProgress {
  public:
    void Begin(std::size_t parts)
    {
        percents_.resize(parts);
        running_ = parts;
    }
    // False when the part shall stop.
    bool Reached(std::size_t part, unsigned percent)
    {
        const std::lock_guard lock(mutex_);
        percents_[part] = percent;
        changed_.notify_one();
        return !stopped_;
    }
    void Ended(std::size_t part, const std::exception_ptr& failure)
    {
        const std::lock_guard lock(mutex_);
        percents_[part] = 100;
        --running_;
        if (failure && !failure_)
            failure_ = failure;
        stopped_ = stopped_ || failure;
        changed_.notify_one();
    }
    // Returns when all parts have ended; throws what the first one threw that failed.
    void Follow(const Progress& progress)
    {
        bool refused = false;
        unsigned told = 0;
        const auto percent = [this] {
            return std::accumulate(percents_.begin(), percents_.end(), 0U) /
                   static_cast<unsigned>(percents_.size());
        };
        std::unique_lock lock(mutex_);
        for (bool ended = false; !ended;) {
            changed_.wait(lock, [&] { return running_ == 0 || percent() != told; });
            ended = running_ == 0;
            const unsigned now = percent();
            if (progress && !stopped_ && now != told) {
                lock.unlock();
                refused = !progress(now, 100);
                lock.lock();
                stopped_ = stopped_ || refused;
            }
            told = now;
        }
        if (refused)
            throw ServicingError(code::cancelled, "the caller has ended the extraction");
        if (failure_)
            std::rethrow_exception(failure_);
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<unsigned> percents_;
    std::size_t running_ = 0;
    bool stopped_ = false;
    std::exception_ptr failure_;
};

std::size_t PartsFor(std::size_t files)
{
    // Each part has its own copy of the image's tree, so there are never many.
    constexpr std::size_t filesWorthAPart = 64;
    const std::size_t processors = std::clamp(std::thread::hardware_concurrency(), 2U, 4U);
    return std::clamp(files / filesWorthAPart, std::size_t{1}, processors);
}

// Which files each part leaves out. In the order in which they lie in the image file, so that every part
// reads forward; what has the same position stays together, which keeps hard links what they are.
std::vector<TreeChanges> LeftOut(std::vector<StoredFile> files, std::size_t parts)
{
    constexpr double costOfAFile = 16384; // creating one takes as long as writing so much
    std::stable_sort(files.begin(), files.end(),
                     [](const auto& a, const auto& b) { return a.position < b.position; });
    // The sizes are what the image file says, so their sum may be anything.
    const auto cost = [](const StoredFile& file) {
        return static_cast<double>(file.size) + costOfAFile;
    };
    double all = 0;
    for (const StoredFile& file : files)
        all += cost(file);

    std::vector<TreeChanges> leftOut(parts);
    double before = 0;
    unsigned long long position = 0;
    std::size_t owner = 0;
    for (const StoredFile& file : files) {
        if (file.position != position)
            owner = std::min(static_cast<std::size_t>(before / all * static_cast<double>(parts)),
                             parts - 1);
        position = file.position;
        before += cost(file);
        for (std::size_t part = 0; part < parts; ++part)
            if (part != owner)
                leftOut[part].removed.push_back(file.path);
    }
    return leftOut;
}

} // namespace

void ExtractImage(const MountRecord& record, const Progress& progress)
{
    PartsProgress parts;
    std::vector<std::unique_ptr<WimFile>> images;
    const auto openNext = [&] {
        const std::size_t part = images.size();
        images.push_back(std::make_unique<WimFile>(
            record.image, WimFile::Access::Read, false,
            [&parts, part](unsigned percent, unsigned) { return parts.Reached(part, percent); }));
    };
    openNext();
    std::vector<StoredFile> files = images[0]->Files(record.index);
    const std::size_t count = PartsFor(files.size());
    const std::vector<TreeChanges> leftOut = LeftOut(std::move(files), count);
    while (images.size() < count)
        openNext();
    RequireUnchangedImage(record);

    parts.Begin(count);
    const auto extract = [&](std::size_t part) {
        std::exception_ptr failure;
        try {
            images[part]->Apply(record.index, record.directory, leftOut[part]);
            images[part]->Extract(record.index, record.directory);
        } catch (...) {
            failure = std::current_exception();
        }
        images[part].reset();
        parts.Ended(part, failure);
    };
    const auto workers = StartWorkers(count, extract);
    for (std::size_t part = workers.size(); part < count; ++part)
        extract(part);
    parts.Follow(progress);
}

} // namespace kestro::servicing
