// lost_power.cpp - what a disk may hold after the power has failed.
#include "lost_power.h"

#include <algorithm>
#include <random>

namespace kestro::test {
namespace {

using Kind = DiskStep::Kind;

bool IsAboutNames(const DiskStep& step)
{
    return step.kind == Kind::Make || step.kind == Kind::Rename || step.kind == Kind::Remove;
}

void Rename(std::map<std::string, std::size_t>& names, const DiskStep& step, std::size_t file)
{
    if (step.kind == Kind::Make)
        names[step.path] = file;
    else
        names.erase(step.path);
    if (step.kind == Kind::Rename)
        names[step.to] = file;
}

void WriteSector(std::string& content, std::size_t at, const std::string& data)
{
    if (content.size() < at + data.size())
        content.resize(at + data.size());
    content.replace(at, data.size(), data);
}

} // namespace

LostPower::LostPower(const Files& before, std::vector<DiskStep> steps) : steps_(std::move(steps))
{
    for (const auto& [path, content] : before) {
        names_[path] = contents_.size();
        contents_.push_back(content);
    }
    auto names = names_;
    for (const DiskStep& step : steps_) {
        if (step.kind == Kind::Make) {
            names[step.path] = contents_.size();
            contents_.emplace_back();
        }
        const auto found = names.find(step.path);
        const std::size_t file = found == names.end() ? kNone : found->second;
        files_.push_back(file);
        if (IsAboutNames(step))
            Rename(names, step, file);
    }
}

bool LostPower::IsSynced(std::size_t step, std::size_t steps) const
{
    const std::string folder = std::filesystem::path(steps_[step].path).parent_path().string();
    for (std::size_t later = step + 1; later < steps; ++later)
        if (IsAboutNames(steps_[step])
                ? steps_[later].kind == Kind::SyncFolder && steps_[later].path == folder
                : steps_[later].kind == Kind::Sync && files_[later] == files_[step])
            return true;
    return false;
}

Files LostPower::After(std::size_t steps, unsigned seed) const
{
    std::mt19937 random(seed);
    const auto keeps = [&] { return seed == 1 || (seed != 0 && random() % 2 == 0); };
    auto names = names_;
    auto contents = contents_;
    bool namesGoOn = true;
    for (std::size_t i = 0; i < steps; ++i) {
        const DiskStep& step = steps_[i];
        const bool synced = IsSynced(i, steps);
        if (IsAboutNames(step)) {
            namesGoOn = synced || (namesGoOn && keeps());
            if (namesGoOn)
                Rename(names, step, files_[i]);
        } else if (step.kind == Kind::Cut) {
            if (synced || keeps())
                contents[files_[i]].resize(step.offset);
        } else if (step.kind == Kind::Write) {
            constexpr std::size_t sector = 512;
            for (std::size_t done = 0; done < step.data.size();) {
                const std::size_t at = step.offset + done,
                                  size = std::min(sector - at % sector, step.data.size() - done);
                if (synced || keeps())
                    WriteSector(contents[files_[i]], at, step.data.substr(done, size));
                done += size;
            }
        }
    }
    Files files;
    for (const auto& [path, file] : names)
        files[path] = contents[file];
    return files;
}

} // namespace kestro::test
