// saved_places.cpp - where the saved image has what a mount shows.
#include "saved_places.h"

#include "servicing_error.h"

#include <algorithm>

namespace kestro::servicing {
namespace {

void RequirePlainPath(const std::string& path)
{
    if (!IsPlainPath(path))
        throw ServicingError(code::not_a_valid_mount, "the overlay notes an impossible " + path);
}

} // namespace

SavedPlaces::SavedPlaces(const UpperState& former, const UpperState& now)
    : former_(former), now_(now), formerSources_(SourcesOf(former)), sources_(SourcesOf(now)),
      formerPlaces_(Inverse(formerSources_))
{
    for (const auto& [path, entry] : former)
        if (entry.file.born != 0 && !entry.whiteout)
            formerNames_[IdentityOf(entry.file)].push_back(path);
    for (const auto& [path, entry] : now)
        if (entry.file.born != 0)
            there_.insert(IdentityOf(entry.file));
}

// The sources of all directories of the state through which the image shows.
SavedPlaces::Places SavedPlaces::SourcesOf(const UpperState& state)
{
    Places sources{{"", ""}};
    for (const auto& [path, entry] : state) {
        if (entry.file.type != FileType::Directory || entry.opaque)
            continue;
        const auto parent = sources.find(ParentOf(path));
        if (entry.redirect.starts_with('/')) {
            RequirePlainPath(entry.redirect);
            sources.emplace(path, entry.redirect);
        } else if (parent != sources.end()) {
            std::string source = parent->second;
            source += entry.redirect.empty() ? NameOf(path) : "/" + entry.redirect;
            RequirePlainPath(source);
            sources.emplace(path, std::move(source));
        }
    }
    return sources;
}

SavedPlaces::Places SavedPlaces::Inverse(const Places& places)
{
    Places inverse;
    for (const auto& [from, to] : places)
        inverse.emplace(to, from);
    return inverse;
}

std::optional<std::string> SavedPlaces::AddDirectory(const std::string& path)
{
    const FileState& file = now_.at(path).file;
    const auto isOwn = [&](const std::string& savedPath) { // nothing of the image as mounted
        const UpperEntry* const entry = FormerAt(savedPath);
        return entry != nullptr && entry->file.type == FileType::Directory &&
               !formerSources_.contains(savedPath);
    };
    std::optional<std::string> place;
    if (const auto source = sources_.find(path); source != sources_.end())
        place = SavedPlaceOf(source->second);
    else if (const auto* const names = FormerNamesOf(file); names && isOwn(names->front()))
        place = names->front();
    else if (const auto expected = SavedPathOf(path);
             expected && isOwn(*expected) &&
             !there_.contains(IdentityOf(FormerAt(*expected)->file)))
        place = expected;
    if (place) {
        savedPaths_.emplace(path, *place);
        nowPaths_.emplace(*place, path);
    }
    return place;
}

std::string SavedPlaces::SavedPlaceOf(const std::string& source) const
{
    for (std::string prefix = source;; prefix = ParentOf(prefix))
        if (const auto place = formerPlaces_.find(prefix); place != formerPlaces_.end())
            return place->second + source.substr(prefix.size());
}

std::optional<std::string> SavedPlaces::SavedPathOf(const std::string& path) const
{
    const auto parent = savedPaths_.find(ParentOf(path));
    if (parent == savedPaths_.end())
        return std::nullopt;
    return parent->second + NameOf(path);
}

std::optional<std::string> SavedPlaces::NowPathOf(const std::string& savedPath) const
{
    for (std::string prefix = savedPath;; prefix = ParentOf(prefix)) {
        if (const auto place = nowPaths_.find(prefix); place != nowPaths_.end()) {
            const std::string path = place->second + savedPath.substr(prefix.size());
            for (std::string part = path; part.size() > place->second.size(); part = ParentOf(part))
                if (now_.contains(part))
                    return std::nullopt;
            return path;
        }
        if (FormerAt(prefix) != nullptr)
            return std::nullopt; // the directory is gone
    }
}

const UpperEntry* SavedPlaces::FormerOf(const std::string& path) const
{
    const auto saved = SavedPathOf(path);
    return saved ? FormerAt(*saved) : nullptr;
}

const UpperEntry* SavedPlaces::FormerAt(const std::string& savedPath) const
{
    const auto found = former_.find(savedPath);
    return found == former_.end() ? nullptr : &found->second;
}

const std::vector<std::string>* SavedPlaces::FormerNamesOf(const FileState& file) const
{
    const auto found = formerNames_.find(IdentityOf(file));
    const bool known =
        found != formerNames_.end() && FormerAt(found->second.front())->file.type == file.type;
    return known ? &found->second : nullptr;
}

// Whether the saved image has there what the mounted image had, and not what a save has put there.
bool SavedPlaces::IsShownThrough(const std::string& savedPath) const
{
    if (FormerAt(savedPath) != nullptr)
        return false;
    for (std::string prefix = ParentOf(savedPath); !prefix.empty(); prefix = ParentOf(prefix))
        if (FormerAt(prefix) != nullptr)
            return formerSources_.contains(prefix);
    return true;
}

// Of one that came out of the mounted image since the last save.
std::optional<std::string> SavedPlaces::SavedPlaceOf(const UpperEntry& entry) const
{
    if (entry.place.empty() || !IsPlainPath(entry.place))
        return std::nullopt;
    const std::string place = SavedPlaceOf(entry.place);
    return IsShownThrough(place) ? std::optional(place) : std::nullopt;
}

std::vector<std::string> SavedPlaces::LeftNamesOf(const UpperEntry& entry) const
{
    std::vector<std::string> left;
    if (const auto* const names = FormerNamesOf(entry.file))
        left = *names;
    else if (auto place = SavedPlaceOf(entry); place && !NowPathOf(*place))
        left.push_back(*place);
    std::erase_if(left, [&](const std::string& name) {
        const auto parent = nowPaths_.find(ParentOf(name));
        const auto now =
            parent == nowPaths_.end() ? now_.end() : now_.find(parent->second + NameOf(name));
        return now != now_.end() && IsInPlace(now->first, now->second);
    });
    return left;
}

bool SavedPlaces::IsInPlace(const std::string& path, const UpperEntry& entry) const
{
    const auto saved = SavedPathOf(path);
    if (!saved || entry.whiteout)
        return false;
    if (const auto* const names = FormerNamesOf(entry.file))
        return std::find(names->begin(), names->end(), *saved) != names->end();
    return SavedPlaceOf(entry) == saved;
}

} // namespace kestro::servicing
