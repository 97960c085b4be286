// inf_source_files.cpp - where below its folder an INF says that its files are.
#include "inf_source_files.h"

namespace kestro::servicing {

// A folder as INFs write it ("\x64", ".\amd64\") with '/' and without the parts that say nothing.
static std::string Folder(const std::string& text)
{
    std::string folder;
    std::string part;
    for (const char c : text + "/") {
        if (c != '\\' && c != '/') {
            part += c;
            continue;
        }
        if (!part.empty() && part != ".")
            folder += (folder.empty() ? "" : "/") + part;
        part.clear();
    }
    return folder;
}

static std::string Join(const std::string& left, const std::string& right)
{
    return left.empty() || right.empty() ? left + right : left + "/" + right;
}

// The lines of a section and of its variant for the architecture, the variant's first: it wins.
static std::vector<InfLine> WithVariant(const InfFile& inf, const std::string& section,
                                        Architecture architecture)
{
    auto lines = inf.Section(section + "." + ArchitectureName(architecture));
    for (auto& line : inf.Section(section))
        lines.push_back(std::move(line));
    return lines;
}

struct Disk {
    std::string folder;
    std::string cabinet;
};

static std::map<std::string, Disk> Disks(const InfFile& inf, Architecture architecture)
{
    std::map<std::string, Disk> disks;
    for (const auto& line : WithVariant(inf, "SourceDisksNames", architecture)) {
        const bool isCabinet = LowerCase(line.Value(1)).ends_with(".cab");
        disks.emplace(line.Key(),
                      Disk{Folder(line.Value(3)), isCabinet ? line.Value(1) : std::string()});
    }
    return disks;
}

InfSourceFiles::InfSourceFiles(const InfFile& inf, Architecture architecture)
{
    const auto disks = Disks(inf, architecture);
    for (const auto& line : WithVariant(inf, "SourceDisksFiles", architecture)) {
        if (line.Key().empty() || !places_.emplace(LowerCase(line.Key()), files_.size()).second)
            continue;
        const auto disk = disks.find(line.Value(0));
        if (disk == disks.end())
            files_.push_back({Folder(line.Value(1)), line.Key()});
        else if (disk->second.cabinet.empty())
            files_.push_back({Join(disk->second.folder, Folder(line.Value(1))), line.Key()});
        else
            files_.push_back({disk->second.folder, disk->second.cabinet});
    }
}

SourceFile InfSourceFiles::Find(const std::string& name) const
{
    const auto place = places_.find(LowerCase(name));
    return place == places_.end() ? SourceFile{"", name} : files_[place->second];
}

} // namespace kestro::servicing
