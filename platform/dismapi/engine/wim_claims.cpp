// wim_claims.cpp - what an image file claims of itself, held against what it can be.
#include "wim_claims.h"

#include "file_system.h"
#include "servicing_error.h"
#include "wim_blobs.h"
#include "wim_resource.h"
#include "wim_tree.h"

#include <bit>

namespace kestro::servicing {
namespace {

// In a solid resource content of many files is compressed as one. It begins with the size of that and of
// its parts, and with its compression.
struct SolidHead {
    static constexpr std::size_t kSize = 16;
    // In place of the original size, of the entry of a resource itself.
    static constexpr std::uint64_t kMark = 1ULL << 32;
};

class Claims {
  public:
    Claims(int image, const std::string& path)
        : image_(image), path_(path), header_(WimHeader::Read(image))
    {
        struct stat status = {};
        if (fstat(image, &status) != 0)
            throw SystemError("cannot look at " + path);
        size_ = static_cast<std::uint64_t>(status.st_size);
        Require(!header_.IsEmpty() && header_.IsOfImageFile(), "is no image file");
        if (header_.Parts() != 1)
            throw ServicingError(code::split_image, path + " is a part of a split image file");
        chunks_ = ChunksOf(header_);
    }

    void RequireTables() const
    {
        for (const WimResource& table :
             {header_.BlobTable(), header_.Xml(), header_.IntegrityTable()})
            RequireInside(table);
        const std::uint64_t count = header_.ImageCount();
        Require(count <= size_ / WimBlob::kSize, "says that it holds " + std::to_string(count) +
                                                     " images, which its size has no room for");
        RequireCredibleSize(header_.Xml(), chunks_);
        RequireCredibleSize(header_.IntegrityTable(), chunks_);
        RequireBlobs(Blobs());
    }

    void RequireTree(unsigned index) const
    {
        const std::vector<WimBlob> blobs = Blobs();
        if (const WimBlob* const tree = FindTree(blobs, index))
            RequireTreeWithinItself(ReadResource(image_, tree->resource, chunks_));
    }

  private:
    void Require(bool credible, const std::string& claim) const
    {
        if (!credible)
            throw ServicingError(code::bad_format, path_ + " " + claim);
    }
    void RequireInside(const WimResource& resource) const
    {
        Require(resource.IsInside(size_), "ends before something that it says is in it");
    }
    std::vector<WimBlob> Blobs() const
    {
        return ParseBlobTable(ReadResource(image_, header_.BlobTable(), chunks_));
    }
    void RequireBlobs(const std::vector<WimBlob>& blobs) const
    {
        constexpr std::uint64_t mostSteps = 1ULL << 30;
        std::uint64_t solids = 0;
        for (const WimBlob& blob : blobs) {
            const WimResource& resource = blob.resource;
            const bool isSolid = header_.MayBeSolid() && resource.Has(WimResource::kSolid);
            if (isSolid && resource.originalSize == SolidHead::kMark) {
                RequireSolid(resource);
                ++solids;
            } else if (!isSolid && blob.hasHash) {
                RequireInside(resource);
                if (resource.Has(WimResource::kMetadata))
                    RequireCredibleSize(resource, chunks_);
                else if (resource.Has(WimResource::kCompressed))
                    Require(chunks_.size != 0 &&
                                LeastStored(resource.originalSize, chunks_) <= resource.storedSize,
                            "claims that little holds much");
            }
        }
        // For each file libwim goes through all of them.
        Require(solids * blobs.size() <= mostSteps, "has more solid parts than any file");
    }
    void RequireSolid(const WimResource& resource) const
    {
        RequireInside(resource);
        Require(resource.storedSize >= SolidHead::kSize, "has a solid part without a beginning");
        const std::string head = ReadRange(image_, resource.offset, SolidHead::kSize);
        const std::uint64_t original = LittleEndian(head.data(), 8);
        Chunks chunks;
        chunks.size = LittleEndian(head.data() + 8, 4);
        Require(std::has_single_bit(chunks.size) && chunks.size <= kMostSolidChunk,
                "has a solid part of parts that no file has");
        Require(LeastStored(original, chunks) <= resource.storedSize - SolidHead::kSize,
                "claims that little holds much");
    }

    static constexpr std::uint64_t kMostSolidChunk = 64 << 20;
    int image_;
    const std::string& path_;
    WimHeader header_;
    Chunks chunks_;
    std::uint64_t size_ = 0;
};

} // namespace

void RequireCredible(int image, const std::string& path)
{
    Claims(image, path).RequireTables();
}

void RequireCredibleTree(int image, const std::string& path, unsigned index)
{
    Claims(image, path).RequireTree(index);
}

} // namespace kestro::servicing
