// image_change.cpp - changes to an image's files that happen together or not at all.
#include "image_change.h"

#include "file_system.h"

#include <algorithm>
#include <fstream>
#include <tuple>

namespace fs = std::filesystem;

namespace kestro::servicing {

namespace {

constexpr char kJournal[] = "journal";    // the change is to be finished
constexpr char kTakeBack[] = "take-back"; // the change is to be taken back

bool IsThere(const fs::path& path)
{
    return fs::symlink_status(path).type() != fs::file_type::not_found;
}

bool IsBelow(const fs::path& path, const fs::path& folder)
{
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
           folder.end();
}

// A second name for the file: the first one can then be given to another file in one step.
void KeepFile(const fs::path& file, const fs::path& as)
{
    std::error_code noLinks;
    fs::create_hard_link(file, as, noLinks);
    if (noLinks)
        CopyFile(file, as);
}

} // namespace

ImageChange::ImageChange(fs::path root, fs::path folder)
    : root_(std::move(root)), folder_(std::move(folder))
{
    FinishInterrupted();
}

ImageChange::~ImageChange()
{
    std::error_code ignored;
    if (!fs::exists(folder_ / kJournal, ignored) && !fs::exists(folder_ / kTakeBack, ignored))
        RemoveFolder();
}

void ImageChange::MakeFolder()
{
    for (fs::path part = folder_; !IsThere(part); part = part.parent_path())
        made_.push_back(part);
    fs::create_directories(folder_);
}

fs::path ImageChange::NewPath()
{
    MakeFolder();
    return folder_ / ("new" + std::to_string(next_++));
}

const ImageChange::Step* ImageChange::FindStep(const fs::path& target) const
{
    const auto found = steps_.find(target);
    return found == steps_.end() ? nullptr : &found->second;
}

void ImageChange::AddStep(Step::Kind kind, const std::string& number, const fs::path& target,
                          Order order)
{
    steps_[target] = {kind, number, target, order, next_++};
}

void ImageChange::Forget(const fs::path& target)
{
    std::erase_if(steps_, [&](const auto& known) {
        const bool forgotten = IsBelow(known.second.target, target);
        if (forgotten)
            fs::remove_all(StagedOf(known.second));
        return forgotten;
    });
}

void ImageChange::Place(const fs::path& staged, const fs::path& target, Order order)
{
    Forget(target);
    const std::string number = staged.filename().string().substr(3);
    AddStep(Step::Kind::Place, number, target, order);
}

void ImageChange::CopyTo(const fs::path& source, const fs::path& target, Order order)
{
    const fs::path staged = NewPath();
    CopyFile(source, staged);
    Place(staged, target, order);
}

void ImageChange::Remove(const fs::path& target, Order order)
{
    Forget(target);
    if (IsThere(target))
        AddStep(Step::Kind::Remove, std::to_string(next_++), target, order);
}

fs::path ImageChange::Now(const fs::path& target) const
{
    for (fs::path part = target; part.has_relative_path() && part != root_;
         part = part.parent_path())
        if (const Step* step = FindStep(part)) {
            if (step->kind == Step::Kind::Remove)
                return {};
            const fs::path staged = StagedOf(*step) / target.lexically_relative(part);
            const fs::path now = part == target ? StagedOf(*step) : staged;
            return IsThere(now) ? now : fs::path();
        }
    return IsThere(target) ? target : fs::path();
}

std::set<std::string> ImageChange::NamesIn(const fs::path& folder,
                                           std::set<std::string> names) const
{
    const std::string inFolder = folder.string() + "/";
    for (auto step = steps_.lower_bound(inFolder);
         step != steps_.end() && step->first.starts_with(inFolder); ++step) {
        const std::string name = step->first.substr(inFolder.size());
        if (name.find('/') != std::string::npos)
            continue;
        if (step->second.kind == Step::Kind::Remove)
            names.erase(name);
        else
            names.insert(name);
    }
    return names;
}

ImageChange::Steps ImageChange::StepsInOrder() const
{
    Steps steps;
    for (const auto& [target, step] : steps_)
        steps.push_back(step);
    std::sort(steps.begin(), steps.end(), [](const Step& a, const Step& b) {
        return std::tie(a.order, a.turn) < std::tie(b.order, b.turn);
    });
    // Folders that are missing for what is placed, the outermost first.
    std::vector<fs::path> missing;
    for (const auto& step : steps)
        for (fs::path folder = step.target.parent_path();
             step.kind == Step::Kind::Place && folder != root_ && !IsThere(folder);
             folder = folder.parent_path())
            missing.push_back(folder);
    std::sort(missing.begin(), missing.end());
    missing.erase(std::unique(missing.begin(), missing.end()), missing.end());
    Steps all;
    for (const auto& folder : missing)
        all.push_back({Step::Kind::MakeFolder, "0", folder, Order::Files, 0});
    all.insert(all.end(), steps.begin(), steps.end());
    return all;
}

// One step a line: what to do, its number, the path below the image's root.
std::string ImageChange::JournalText(const Steps& steps) const
{
    std::string text;
    for (const auto& step : steps) {
        const char* kind = step.kind == Step::Kind::Place    ? "place "
                           : step.kind == Step::Kind::Remove ? "remove "
                                                             : "folder ";
        text += kind + step.number + " " + step.target.lexically_relative(root_).string() + "\n";
    }
    return text;
}

ImageChange::Steps ImageChange::ReadJournal(const fs::path& journal) const
{
    Steps steps;
    std::ifstream in(journal);
    std::string kind, number, path;
    while (in >> kind >> number && in.get() && std::getline(in, path)) {
        const bool leads = fs::path(path).is_absolute() || path.find("..") != std::string::npos ||
                           number.find('/') != std::string::npos;
        if (leads)
            throw ServicingError(code::bad_format, journal.string() + " is damaged");
        steps.push_back({kind == "place"    ? Step::Kind::Place
                         : kind == "remove" ? Step::Kind::Remove
                                            : Step::Kind::MakeFolder,
                         number, root_ / path, Order::Files, 0});
    }
    return steps;
}

// Each step may have been done already, or in part.
void ImageChange::Do(const Step& step) const
{
    if (step.kind == Step::Kind::MakeFolder) {
        fs::create_directory(step.target);
        return;
    }
    const fs::path old = OldOf(step);
    if (step.kind == Step::Kind::Remove) {
        if (!IsThere(old) && IsThere(step.target))
            fs::rename(step.target, old);
        return;
    }
    if (!IsThere(StagedOf(step)))
        return;
    if (IsThere(step.target) && !IsThere(old)) {
        if (fs::is_directory(fs::symlink_status(step.target)))
            fs::rename(step.target, old);
        else
            KeepFile(step.target, old);
    }
    fs::rename(StagedOf(step), step.target);
}

void ImageChange::Undo(const Step& step) const
{
    if (step.kind == Step::Kind::MakeFolder) {
        std::error_code notEmpty;
        fs::remove(step.target, notEmpty);
        return;
    }
    const fs::path old = OldOf(step);
    const fs::path staged = StagedOf(step);
    // What was placed goes back aside, a file without leaving its name empty.
    if (step.kind == Step::Kind::Place && !IsThere(staged) && IsThere(step.target)) {
        std::error_code failed;
        if (fs::is_regular_file(old))
            fs::create_hard_link(step.target, staged, failed);
        if (!IsThere(staged))
            fs::rename(step.target, staged);
    }
    if (!IsThere(old))
        return;
    // A second name of a file that was never replaced is of no use any more.
    const bool isAway =
        !IsThere(step.target) || (IsThere(staged) && fs::equivalent(step.target, staged));
    if (isAway)
        fs::rename(old, step.target);
    else
        fs::remove(old);
}

void ImageChange::TakeBack(const Steps& steps)
{
    for (auto step = steps.rbegin(); step != steps.rend(); ++step)
        Undo(*step);
    SyncFileSystem(folder_);
    fs::remove(folder_ / kTakeBack);
    RemoveFolder();
}

// With those above it that were made for it and hold nothing else.
void ImageChange::RemoveFolder()
{
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    for (const auto& part : made_)
        fs::remove(part, ignored);
    made_.clear();
}

void ImageChange::Commit()
{
    if (steps_.empty()) {
        RemoveFolder();
        return;
    }
    const Steps steps = StepsInOrder();
    // With the journal, everything staged is on disk.
    MakeFolder();
    SyncFileSystem(folder_);
    WriteWholeFile(folder_ / kJournal, JournalText(steps));
    steps_.clear();
    try {
        for (const auto& step : steps)
            Do(step);
        SyncFileSystem(folder_);
    } catch (...) {
        fs::rename(folder_ / kJournal, folder_ / kTakeBack);
        TakeBack(steps);
        throw;
    }
    // From here on the folder says nothing any more.
    fs::remove(folder_ / kJournal);
    RemoveFolder();
}

void ImageChange::FinishInterrupted()
{
    if (!fs::exists(folder_))
        return;
    if (fs::exists(folder_ / kTakeBack)) {
        TakeBack(ReadJournal(folder_ / kTakeBack));
        return;
    }
    if (fs::exists(folder_ / kJournal)) {
        for (const auto& step : ReadJournal(folder_ / kJournal))
            Do(step);
        SyncFileSystem(folder_);
        fs::remove(folder_ / kJournal);
    }
    fs::remove_all(folder_);
}

} // namespace kestro::servicing
