// catalog.h - what a package's signed catalog says about it.
#pragma once

#include "codes.h"
#include "signed_message.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestro::servicing {

enum class CatalogState {
    Missing,         // no catalog is named, or it is not there
    NotSigned,       // no signed catalog
    Altered,         // its signature was made over something else
    NotTrusted,      // its signer may not sign drivers
    FileNotListed,   // properly signed, but for other files or another state of them
    ForOtherWindows, // properly signed, but for later Windows
    Signed,
};

struct CatalogVerdict {
    CatalogState state = CatalogState::Missing;
    std::string reason; // what is wrong, as the end of a sentence; empty when Signed
    std::vector<std::string> notListed; // names of the files that are not in it as they are

    // Known when Signed.
    std::string signer; // common name of the certificate
    std::uint32_t signerScore = score::without_signature;
    std::optional<std::uint32_t> attributes; // CatalogAttributes of the driver database
    std::string submissionId;
};

// A file of a package: where it lies, and as what messages name it.
struct PackageFile {
    std::filesystem::path path;
    std::string name;
};

struct WindowsVersion {
    unsigned major = 0;
    unsigned minor = 0;
    auto operator<=>(const WindowsVersion&) const = default;
};

// Checks the catalog's signature with the certificate that it carries, that certificate's purpose, time
// and the issuers that come with it, and that the catalog has a whole member for every file, for this or
// an earlier version of Windows where one is given. Not checked: whether the certificate leads to a root
// that Windows trusts, and whether it was revoked.
CatalogVerdict CheckCatalog(const std::filesystem::path& catalog,
                            const std::vector<PackageFile>& files,
                            std::optional<WindowsVersion> windows = std::nullopt);

// The code with which Windows refuses a package whose catalog is in that state.
Code CodeOf(CatalogState state);

// First 16 hex digits of a SHA-256 over text and files; names driver store folders.
class ContentHash {
  public:
    ContentHash();
    ~ContentHash();
    ContentHash(const ContentHash&) = delete;
    ContentHash& operator=(const ContentHash&) = delete;

    void Add(std::string_view text);
    void AddFile(const std::filesystem::path& file);
    std::string Finish();

  private:
    void* state_;
};

} // namespace kestro::servicing
