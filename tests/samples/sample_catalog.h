// sample_catalog.h - writes signed catalogs as Windows has them, and as nobody should.
#pragma once

#include "sample_signer.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace kestro::samples {

inline constexpr char kTrustList[] = "1.3.6.1.4.1.311.10.1";
inline constexpr char kIndirectData[] = "1.3.6.1.4.1.311.2.1.4";

struct ListedFile {
    std::string name;
    bool isImage = false;
    std::string sha1, sha256;
};

// A file by its bytes; images by the hash that they know of themselves.
class SampleImage;
ListedFile Listing(const std::string& name, const std::string& bytes);
ListedFile Listing(const std::string& name, const SampleImage& image);

struct SampleCatalog {
    enum class Members {
        Both,            // each file twice, as today's catalogs have it
        Sha1,            // the members with the SHA-1 alone
        Sha256,          // the members with the SHA-256 alone
        FirstGeneration, // SHA-1, with its digits as the tag
    };

    std::vector<ListedFile> files;
    Members members = Members::Both;
    std::optional<std::string> osAttribute = "2:10.0"; // of every member
    std::map<std::string, std::string> attributes;     // of the catalog
    bool pageHashes = false;                           // hashes of an image's pages beside its own
    bool wrongInside = false;                          // tag and hash of each member differ

    std::string List() const; // what is signed
    std::string SignedBy(const SampleSigner& signer) const
    {
        return signer.Sign(kTrustList, List());
    }
};

// What says of which kind a hash is.
std::string IndirectData(bool ofImage, const EVP_MD* algorithm, const std::string& hash,
                         bool pageHashes = false);

} // namespace kestro::samples
