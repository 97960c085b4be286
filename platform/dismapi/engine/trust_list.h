// trust_list.h - what a Windows catalog lists: hashes of files, and names with values.
#pragma once

#include "signed_message.h"

#include <map>
#include <set>
#include <string>

namespace kestro::servicing {

// Names with their values, both UTF-8.
using CatalogAttributes = std::map<std::string, std::string>;

struct CatalogMember {
    std::optional<bool> ofImage; // nothing if the catalog does not tell
    CatalogAttributes attributes;
};

struct TrustList {
    // By their SHA-256 or SHA-1.
    std::multimap<std::string, CatalogMember> members;
    CatalogAttributes attributes;
};

// A member counts if its tag and the hash in it, where it has both, are the same. Nothing if these bytes
// are no trust list.
std::optional<TrustList> ReadTrustList(ByteView bytes);

} // namespace kestro::servicing
