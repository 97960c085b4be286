// authenticode.h - how Windows hashes a file for a catalog or for the signature inside it.
#pragma once

#include "file_system.h"
#include "signed_message.h"

#include <filesystem>
#include <vector>

namespace kestro::servicing {

// A program or driver (a PE image, by its content and not its name) is hashed without what signing it
// changes: the checksum, the directory entry of its certificates and the certificates. Any other file is
// hashed as it is.
class HashableFile {
  public:
    explicit HashableFile(const std::filesystem::path& file); // throws ServicingError

    bool IsImage() const { return image_.has_value(); }
    // Empty for an image whose certificates do not lie in the file, and with an algorithm that is not to be had.
    std::string Digest(const EVP_MD* algorithm) const;
    // The messages among an image's certificates.
    std::vector<std::string> Signatures() const;

  private:
    // Offsets in the file; an entry of 0 means that the headers have no place for certificates.
    struct Image {
        std::uint64_t checksum = 0, entry = 0, certificates = 0, certificatesEnd = 0;
    };

    std::optional<Image> ReadImage() const;
    std::string Read(std::uint64_t from, std::uint64_t length) const;
    std::uint32_t Number(std::uint64_t at, int bytes) const;
    void AddTo(EVP_MD_CTX& digest, std::uint64_t from, std::uint64_t to) const;

    std::filesystem::path path_;
    FileDescriptor file_;
    std::uint64_t size_ = 0;
    std::optional<Image> image_;
};

// The hash that a signature or a member of a catalog states, and of what kind of file.
struct StatedHash {
    bool ofImage = false;
    const EVP_MD* algorithm = nullptr;
    std::string digest;
};

// Nothing if these bytes are none, or of a kind or with an algorithm that is unknown here.
std::optional<StatedHash> ReadStatedHash(ByteView bytes);

// Whether a file carries a signature that was made over it, as a driver needs one that is loaded before
// catalogs can be read.
bool CarriesSignature(const std::filesystem::path& file);

} // namespace kestro::servicing
