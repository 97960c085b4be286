// image_parting.cpp - lets a name of a file with several names have content of its own.
#include "image_parting.h"

#include "file_system.h"
#include "servicing_error.h"
#include "wim_blobs.h"
#include "wim_file.h"
#include "wim_links.h"
#include "wim_resource.h"
#include "wim_tree.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace kestro::servicing {
namespace {

constexpr std::size_t kXmlAt = 72, kIntegrityAt = 124, kOffsetAt = 8; // in a header, in a resource
constexpr std::size_t kHashAt = 30;                                   // in the table of blobs

FileDescriptor Open(const std::string& standIn)
{
    FileDescriptor file(open(standIn.c_str(), O_RDWR | O_CLOEXEC));
    if (!file)
        throw SystemError("cannot open " + standIn);
    return file;
}

void Put(std::string& bytes, std::size_t at, std::uint64_t number, std::size_t size)
{
    for (std::size_t byte = 0; byte < size; ++byte)
        bytes[at + byte] = static_cast<char>(number >> byte * 8);
}

// Of a stand-in the content of files is of no use, and its room is free. Only the last part that an integrity
// table covers must stay as it is.
std::uint64_t PlaceFor(const std::string& tree, const WimHeader& header)
{
    const bool isRoom = header.IntegrityTable().IsAbsent() &&
                        WimHeader::kSize + tree.size() <= header.BlobTable().offset;
    return isRoom ? WimHeader::kSize : header.End();
}

// libwim appends to nothing that has something else than an integrity table behind the XML.
void MoveTablesBehind(std::uint64_t end, int file, const WimHeader& header)
{
    std::string bytes = header.Bytes();
    const auto move = [&](const WimResource& table, std::size_t entry) {
        if (table.IsAbsent())
            return;
        WriteRange(file, end, ReadRange(file, table.offset, table.storedSize));
        Put(bytes, entry + kOffsetAt, end, 8);
        end += table.storedSize;
    };
    move(header.Xml(), kXmlAt);
    move(header.IntegrityTable(), kIntegrityAt);
    WriteRange(file, 0, bytes);
}

std::string EntryOf(const std::string& tree, std::uint64_t place, std::string entry)
{
    Put(entry, 0, tree.size(), 7);
    Put(entry, 7, WimResource::kMetadata, 1);
    Put(entry, kOffsetAt, place, 8);
    Put(entry, 16, tree.size(), 8);
    return entry.replace(kHashAt, entry.size() - kHashAt, HashOf(tree));
}

// Of the names of one file those that the saved image has on one file, which has others besides.
std::vector<std::string> NamesToPart(const ReplayPlan::File& file, const std::string& shown)
{
    const auto links = [&](const ReplayPlan::Name& name) -> nlink_t {
        struct stat status = {};
        const bool isFile = !name.savedAs.empty() &&
                            lstat((shown + name.savedAs).c_str(), &status) == 0 &&
                            S_ISREG(status.st_mode);
        return isFile ? status.st_nlink : 0;
    };
    std::vector<std::string> linked;
    for (const ReplayPlan::Name& name : file.names) {
        std::vector<std::string> together;
        for (const ReplayPlan::Name& other : file.names)
            if (&other == &name || (name.group != 0 && other.group == name.group))
                together.push_back(other.savedAs);
        const nlink_t all = links(name);
        if (all == together.size())
            return {};
        if (all > together.size() && linked.empty())
            linked = std::move(together);
    }
    return linked;
}

} // namespace

std::vector<std::vector<std::string>> FindNamesToPart(const ReplayPlan& plan,
                                                      const std::string& shown)
{
    std::vector<std::vector<std::string>> all;
    for (const ReplayPlan::File& file : plan.files)
        if (file.write && file.type == FileType::File)
            if (auto names = NamesToPart(file, shown); !names.empty())
                all.push_back(std::move(names));
    return all;
}

std::optional<Parting> PartNames(const std::string& standIn, unsigned index,
                                 const std::vector<std::vector<std::string>>& names)
{
    const FileDescriptor file = Open(standIn);
    Parting parting;
    parting.before = WimHeader::Read(file.Get());
    const WimHeader& header = parting.before;
    const std::vector<WimBlob> blobs = ReadBlobTable(file.Get(), header.BlobTable());
    const WimBlob* const blob = FindTree(blobs, index);
    if (blob == nullptr)
        return std::nullopt;
    std::string tree = ReadResource(file.Get(), blob->resource, ChunksOf(header));
    RequireTreeWithinItself(tree);
    bool any = false;
    for (const auto& linked : names)
        any = PartFromGroup(tree, linked) || any;
    if (!any)
        return std::nullopt;

    parting.at = header.BlobTable().offset +
                 static_cast<std::uint64_t>(blob - blobs.data()) * WimBlob::kSize;
    parting.original = ReadRange(file.Get(), parting.at, WimBlob::kSize);
    const std::uint64_t place = PlaceFor(tree, header);
    WriteRange(file.Get(), place, tree);
    WriteRange(file.Get(), parting.at, EntryOf(tree, place, parting.original));
    if (place == header.End())
        MoveTablesBehind(place + tree.size(), file.Get(), header);
    return parting;
}

void EndParting(const std::string& standIn, const Parting& parting)
{
    const FileDescriptor file = Open(standIn);
    const WimHeader now = WimHeader::Read(file.Get());
    if (now.IsEmpty() || now.BlobTable().offset < parting.before.End())
        return; // it was not appended to
    WriteRange(file.Get(), parting.at, parting.original);
    RenewIntegrity(file.Get(), parting.before, now, parting.at, parting.at + WimBlob::kSize);
}

} // namespace kestro::servicing
