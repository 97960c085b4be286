// catalog.h - what a package's signed catalog says about it.
#pragma once

#include <filesystem>
#include <string>

namespace kestro::servicing {

enum class CatalogState {
    Missing,
    NotSigned,    // no signed catalog, or its signature does not fit its content
    InfNotListed, // properly signed, but for another INF or another state of this one
    Signed,
};

struct CatalogVerdict {
    CatalogState state = CatalogState::Missing;
    std::string signer; // common name of the certificate that signed; empty unless Signed
};

// Checks the catalog's signature with the certificate that it carries, and that it lists the INF's
// hash. Whether the certificate leads to a root that Windows trusts is not checked, nor the hashes
// of the other files.
CatalogVerdict CheckCatalog(const std::filesystem::path& catalog, const std::filesystem::path& inf);

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
