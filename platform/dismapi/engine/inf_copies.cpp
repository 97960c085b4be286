// inf_copies.cpp - the files that an INF's CopyFiles directives install, and where to.
#include "inf_copies.h"

#include "inf_number.h"

#include <optional>

namespace kestro::servicing {
namespace {

// What a destination is when the INF names none: System32.
constexpr std::uint32_t kSystemDirectory = 11;

class CopyReader {
  public:
    CopyReader(InfReader& reader, const InfSourceFiles& sources)
        : reader_(reader), sources_(sources)
    {
    }

    void AddLists(const PlacedLine& directive)
    {
        for (const auto& [written, list] : directive.line.values) {
            if (list.starts_with('@'))
                Add(*directive.inf, list.substr(1), list.substr(1), "",
                    Destination(*directive.inf));
            else
                AddList(*directive.inf, list);
        }
    }
    std::vector<FileCopy> Take() { return std::move(copies_); }

  private:
    void AddList(const InfFile& inf, const std::string& list)
    {
        for (const auto& [holder, line] : reader_.Named(inf, list)) {
            const std::string& target = line.Value(0);
            const std::string& source = line.Value(1).empty() ? target : line.Value(1);
            Add(*holder, target, source, line.Value(3), Destination(*holder, list));
        }
    }

    void Add(const InfFile& inf, const std::string& target, const std::string& source,
             const std::string& flags, const DirectoryPath& destination)
    {
        if (target.empty())
            return;
        const bool own = &inf == &reader_.Inf();
        copies_.push_back({target, own ? sources_.Find(source) : SourceFile{"", source},
                           destination, static_cast<std::uint32_t>(InfNumber(flags)),
                           own ? std::string() : inf.Name()});
    }

    // Of a file list, or of files that a directive names itself. Remembered, for lists are long.
    const DirectoryPath& Destination(const InfFile& inf, const std::string& list = "DefaultDestDir")
    {
        const auto [place, isNew] = destinations_.emplace(std::pair(&inf, LowerCase(list)),
                                                          DirectoryPath{kSystemDirectory, ""});
        if (isNew)
            place->second = FindDestination(inf, list);
        return place->second;
    }

    static DirectoryPath FindDestination(const InfFile& inf, const std::string& list)
    {
        DirectoryPath otherwise{kSystemDirectory, ""};
        for (const auto& line : inf.Section("DestinationDirs")) {
            const DirectoryPath place{static_cast<std::uint32_t>(InfNumber(line.Value(0))),
                                      WithoutSlashes(line.Value(1))};
            if (EqualNames(line.Key(), list))
                return place;
            if (EqualNames(line.Key(), "DefaultDestDir"))
                otherwise = place;
        }
        return otherwise;
    }

    static std::string WithoutSlashes(const std::string& folder)
    {
        const auto first = folder.find_first_not_of('\\');
        return first == std::string::npos
                   ? std::string()
                   : folder.substr(first, folder.find_last_not_of('\\') + 1 - first);
    }

    InfReader& reader_;
    const InfSourceFiles& sources_;
    std::vector<FileCopy> copies_;
    std::map<std::pair<const InfFile*, std::string>, DirectoryPath> destinations_;
};

} // namespace

std::vector<FileCopy> ReadCopies(InfReader& reader, const PlacedLines& section,
                                 const InfSourceFiles& sources)
{
    CopyReader copies(reader, sources);
    for (const auto& placed : section)
        if (EqualNames(placed.line.Key(), "CopyFiles"))
            copies.AddLists(placed);
    return copies.Take();
}

} // namespace kestro::servicing
