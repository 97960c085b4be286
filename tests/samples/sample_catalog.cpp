// sample_catalog.cpp - writes signed catalogs as Windows has them, and as nobody should.
#include "sample_catalog.h"

#include "der.h"
#include "sample_image.h"

#include <algorithm>
#include <openssl/objects.h>

namespace kestro::samples {

ListedFile Listing(const std::string& name, const std::string& bytes)
{
    return {name, false, HashOf(bytes, EVP_sha1()), HashOf(bytes, EVP_sha256())};
}

ListedFile Listing(const std::string& name, const SampleImage& image)
{
    return {name, true, image.Hash(EVP_sha1()), image.Hash(EVP_sha256())};
}

static std::string Algorithm(const char* identifier)
{
    return DerSequence({DerObject(identifier), Der(0x05, "")});
}

std::string IndirectData(bool ofImage, const EVP_MD* algorithm, const std::string& hash,
                         bool pageHashes)
{
    // Where the image came from: an empty name, or in its place serialized data with page hashes.
    const std::string pages = DerSequence(
        {DerObject("1.3.6.1.4.1.311.2.3.2"), DerSet({DerOctets(std::string(72, '\x11'))})});
    const std::string origin =
        pageHashes ? Der(0xA1, DerOctets(std::string(16, '\x22')) + DerOctets(pages))
                   : Der(0xA2, Der(0x80, ""));
    const std::string kind =
        ofImage ? DerSequence({DerObject("1.3.6.1.4.1.311.2.1.15"),
                               DerSequence({Der(0x03, std::string(1, '\0')), Der(0xA0, origin)})})
                : DerSequence({DerObject("1.3.6.1.4.1.311.2.1.25"), Der(0xA2, Der(0x80, ""))});
    const char* identifier =
        EVP_MD_get_type(algorithm) == NID_sha1 ? "1.3.14.3.2.26" : "2.16.840.1.101.3.4.2.1";
    return DerSequence({kind, DerSequence({Algorithm(identifier), DerOctets(hash)})});
}

static std::string NameValue(const std::string& name, const std::string& value)
{
    return DerSequence({DerBmpText(name), Der(0x02, std::string("\x10\x01\x00\x01", 4)),
                        DerOctets(LittleEndianText(value + '\0'))});
}

static std::string Attribute(const char* identifier, const std::string& value)
{
    return DerSequence({DerObject(identifier), DerSet({value})});
}

constexpr char kNameValue[] = "1.3.6.1.4.1.311.12.2.1";

static std::string Member(const SampleCatalog& catalog, const ListedFile& file, bool sha256)
{
    const bool first = catalog.members == SampleCatalog::Members::FirstGeneration;
    const std::string& hash = sha256 ? file.sha256 : file.sha1;
    std::vector<std::string> attributes{Attribute(kNameValue, NameValue("File", file.name))};
    if (catalog.osAttribute)
        attributes.push_back(Attribute(kNameValue, NameValue("OSAttr", *catalog.osAttribute)));
    if (first)
        attributes.push_back(Attribute(
            "1.3.6.1.4.1.311.12.2.2",
            DerSequence({DerBmpText(file.isImage ? "{C689AAB8-8E78-11D0-8C47-00C04FC295EE}"
                                                 : "{DE351A42-8E59-11D0-8C47-00C04FC295EE}"),
                         Der(0x02, std::string("\x02\x00", 2))})));
    else
        attributes.push_back(
            Attribute("1.3.6.1.4.1.311.12.2.3", Der(file.isImage ? 0x80 : 0x82, "")));
    if (sha256 || first) {
        std::string inside = hash;
        inside[0] = static_cast<char>(inside[0] ^ (catalog.wrongInside ? 1 : 0));
        attributes.push_back(
            Attribute(kIndirectData, IndirectData(file.isImage, sha256 ? EVP_sha256() : EVP_sha1(),
                                                  inside, catalog.pageHashes && file.isImage)));
    }
    // DER wants the elements of a set in order.
    std::sort(attributes.begin(), attributes.end());
    std::string tag = hash;
    if (first) {
        constexpr char digits[] = "0123456789ABCDEF";
        std::string text;
        for (const unsigned char byte : hash)
            text += {digits[byte >> 4], digits[byte & 15]};
        tag = LittleEndianText(text);
    }
    return DerSequence({DerOctets(tag), DerSet(attributes)});
}

std::string SampleCatalog::List() const
{
    std::vector<std::string> listed;
    for (const ListedFile& file : files) {
        if (members != Members::Sha256)
            listed.push_back(Member(*this, file, false));
        if (members == Members::Both || members == Members::Sha256)
            listed.push_back(Member(*this, file, true));
    }
    std::sort(listed.begin(), listed.end());
    std::vector<std::string> extensions;
    for (const auto& [name, value] : attributes)
        extensions.push_back(
            DerSequence({DerObject(kNameValue), DerOctets(NameValue(name, value))}));
    std::vector<std::string> parts{DerSequence({DerObject("1.3.6.1.4.1.311.12.1.1")}),
                                   DerOctets(std::string(16, '\x4B')), Der(0x17, "240924090013Z"),
                                   Algorithm(members == Members::FirstGeneration
                                                 ? "1.3.6.1.4.1.311.12.1.2"
                                                 : "1.3.6.1.4.1.311.12.1.3"),
                                   DerSequence(listed)};
    if (!extensions.empty())
        parts.push_back(Der(0xA0, DerSequence(extensions)));
    return DerSequence(parts);
}

} // namespace kestro::samples
