// image_stand_in.cpp - a small file that libwim takes for a large image file and appends to.
#include "image_stand_in.h"

#include "file_system.h"
#include "servicing_error.h"
#include "wim_blobs.h"
#include "wim_file.h"

#include <fcntl.h>

#include <algorithm>

namespace kestro::servicing {
namespace {

// Of an integrity table: its size, the count of its hashes, the size of the parts that they are of.
struct IntegrityHead {
    static constexpr std::size_t kSize = 12, kHash = 20;
    std::uint64_t size = 0, count = 0, partSize = 0;
};

IntegrityHead ReadIntegrityHead(int image, const WimResource& table)
{
    if (table.storedSize < IntegrityHead::kSize)
        return {};
    const std::string bytes = ReadRange(image, table.offset, IntegrityHead::kSize);
    return {LittleEndian(bytes.data(), 4), LittleEndian(bytes.data() + 4, 4),
            LittleEndian(bytes.data() + 8, 4)};
}

// libwim goes on with a table like this one, and hashes everything anew in place of any other.
bool IsContinued(const IntegrityHead& head, const WimHeader& header)
{
    constexpr std::uint64_t least = 4096, most = 128 << 20;
    const std::uint64_t checked = header.BlobTable().End() - WimHeader::kSize;
    return head.partSize >= least && head.partSize <= most && head.count > 0 &&
           head.count == (checked + head.partSize - 1) / head.partSize &&
           head.size == IntegrityHead::kSize + head.count * IntegrityHead::kHash &&
           head.size == header.IntegrityTable().storedSize;
}

// The last part that an integrity table covers grows with an append, so it is hashed again.
std::uint64_t LastPartStart(const IntegrityHead& head, const WimHeader& header)
{
    const std::uint64_t checked = header.BlobTable().End() - WimHeader::kSize;
    return WimHeader::kSize + (checked - 1) / head.partSize * head.partSize;
}

bool AreInOrder(const WimHeader& header, const std::vector<WimBlob>& blobs)
{
    const WimResource table = header.BlobTable(), xml = header.Xml(),
                      integrity = header.IntegrityTable();
    return table.offset >= WimHeader::kSize && xml.offset >= table.End() &&
           (integrity.IsAbsent() || integrity.offset >= xml.End()) &&
           std::all_of(blobs.begin(), blobs.end(), [&](const WimBlob& blob) {
               return blob.resource.offset >= WimHeader::kSize && blob.resource.End() <= xml.offset;
           });
}

bool IsPlain(const WimResource& resource)
{
    return !resource.Has(WimResource::kCompressed) && resource.storedSize == resource.originalSize;
}

} // namespace

std::string WhyNotAppendable(int image, const WimHeader& header, bool integrity)
{
    if (header.IsPipable())
        return "it is made to be piped";
    if (header.MayBeSolid())
        return "it is solid";
    const WimResource table = header.BlobTable(), check = header.IntegrityTable();
    if (!IsPlain(table) || !IsPlain(header.Xml()) || !IsPlain(check))
        return "its tables are compressed";
    if (!AreInOrder(header, ReadBlobTable(image, table)))
        return "something in it lies behind its tables";
    if (check.IsAbsent())
        return integrity ? "it has no integrity data yet" : "";
    return IsContinued(ReadIntegrityHead(image, check), header)
               ? ""
               : "its integrity data is of an unusual kind";
}

bool IsWorthCompacting(int image, const WimHeader& header)
{
    constexpr std::uint64_t worthwhile = 64 << 20;
    std::uint64_t used = WimHeader::kSize + header.BlobTable().storedSize +
                         header.Xml().storedSize + header.IntegrityTable().storedSize;
    for (const WimBlob& blob : ReadBlobTable(image, header.BlobTable()))
        if (blob.references != 0)
            used += blob.resource.storedSize;
    const std::uint64_t all = header.End();
    return all > used && all - used > worthwhile && all - used > all / 4;
}

void MakeStandIn(int image, const WimHeader& header, unsigned index, const std::string& path)
{
    const FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file)
        throw SystemError("cannot create " + path);
    if (ftruncate(file.Get(), static_cast<off_t>(header.End())) != 0)
        throw SystemError("cannot write " + path);
    WriteRange(file.Get(), 0, header.Bytes());
    const auto copy = [&](std::uint64_t from, std::uint64_t to) {
        CopyRange(image, file.Get(), from, to);
    };
    const std::vector<WimBlob> blobs = ReadBlobTable(image, header.BlobTable());
    if (const WimBlob* const tree = FindTree(blobs, index))
        copy(tree->resource.offset, tree->resource.End());
    const WimResource check = header.IntegrityTable();
    copy(check.IsAbsent() ? header.BlobTable().offset
                          : std::min(header.BlobTable().offset,
                                     LastPartStart(ReadIntegrityHead(image, check), header)),
         header.End());
}

void RenewIntegrity(int standIn, const WimHeader& before, const WimHeader& now, std::uint64_t from,
                    std::uint64_t to)
{
    const WimResource table = now.IntegrityTable();
    if (before.IntegrityTable().IsAbsent() || table.IsAbsent())
        return;
    const IntegrityHead head = ReadIntegrityHead(standIn, table);
    const std::uint64_t end = now.BlobTable().End();
    for (std::uint64_t part = 0; part < head.count; ++part) {
        const std::uint64_t start = WimHeader::kSize + part * head.partSize,
                            next = std::min(start + head.partSize, end);
        if (start >= LastPartStart(head, before) && start < to && next > from)
            WriteRange(standIn, table.offset + IntegrityHead::kSize + part * IntegrityHead::kHash,
                       HashOf(ReadRange(standIn, start, next - start)));
    }
}

std::optional<WimHeader> AppendedHeader(const std::string& standIn, const WimHeader& before,
                                        unsigned long long inode)
{
    const ImageIdentity now = ImageIdentityOf(standIn);
    const bool appended = now.inode == inode && !now.header.IsEmpty() &&
                          now.header.BlobTable().offset >= before.End() &&
                          now.header.Xml().offset >= now.header.BlobTable().End();
    return appended ? std::optional(now.header) : std::nullopt;
}

} // namespace kestro::servicing
