// trust_list.cpp - reads the ASN.1 of a Windows catalog.
#include "trust_list.h"

#include "authenticode.h"

#include <openssl/asn1t.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

namespace kestro::servicing {

// --- its ASN.1 -------------------------------------------------------------------------------------

struct Subject {
    ASN1_OCTET_STRING* tag;
    STACK_OF(X509_ATTRIBUTE) * attributes;
};
ASN1_SEQUENCE(Subject) = {ASN1_SIMPLE(Subject, tag, ASN1_OCTET_STRING),
                          ASN1_SET_OF_OPT(Subject, attributes, X509_ATTRIBUTE)} //
static_ASN1_SEQUENCE_END(Subject) DEFINE_STACK_OF(Subject)

    struct List {
    ASN1_INTEGER* version;
    STACK_OF(ASN1_OBJECT) * usage;
    ASN1_OCTET_STRING* identifier;
    ASN1_INTEGER* sequenceNumber;
    ASN1_TIME* thisUpdate;
    ASN1_TIME* nextUpdate;
    X509_ALGOR* algorithm;
    STACK_OF(Subject) * subjects;
    STACK_OF(X509_EXTENSION) * extensions;
};
ASN1_SEQUENCE(List) = {ASN1_OPT(List, version, ASN1_INTEGER),
                       ASN1_SEQUENCE_OF(List, usage, ASN1_OBJECT),
                       ASN1_OPT(List, identifier, ASN1_OCTET_STRING),
                       ASN1_OPT(List, sequenceNumber, ASN1_INTEGER),
                       ASN1_SIMPLE(List, thisUpdate, ASN1_TIME),
                       ASN1_OPT(List, nextUpdate, ASN1_TIME),
                       ASN1_SIMPLE(List, algorithm, X509_ALGOR),
                       ASN1_SEQUENCE_OF_OPT(List, subjects, Subject),
                       ASN1_EXP_SEQUENCE_OF_OPT(List, extensions, X509_EXTENSION, 0)} //
static_ASN1_SEQUENCE_END(List)

    struct NameValue {
    ASN1_BMPSTRING* name;
    ASN1_INTEGER* action;
    ASN1_OCTET_STRING* value;
};
ASN1_SEQUENCE(NameValue) = {ASN1_SIMPLE(NameValue, name, ASN1_BMPSTRING),
                            ASN1_SIMPLE(NameValue, action, ASN1_INTEGER),
                            ASN1_SIMPLE(NameValue, value, ASN1_OCTET_STRING)} //
static_ASN1_SEQUENCE_END(NameValue)

    template <class T>
    struct Decoded {
    const ASN1_ITEM* item;
    T* value;

    Decoded(ByteView bytes, const ASN1_ITEM* type) : item(type)
    {
        const unsigned char* at = bytes.data();
        value = reinterpret_cast<T*>(
            ASN1_item_d2i(nullptr, &at, static_cast<long>(bytes.size()), item));
    }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;
    ~Decoded() { ASN1_item_free(reinterpret_cast<ASN1_VALUE*>(value), item); }
};

// --- texts -----------------------------------------------------------------------------------------

static ByteView BytesOf(const ASN1_STRING* text)
{
    return {text->data, static_cast<std::size_t>(text->length)};
}

static std::string Utf8(const ASN1_STRING* text)
{
    unsigned char* utf8 = nullptr;
    const int length = ASN1_STRING_to_UTF8(&utf8, text);
    const std::string result = length < 0 ? std::string() : std::string(utf8, utf8 + length);
    OPENSSL_free(utf8);
    return result;
}

// Values are UTF-16 with the low byte first and a zero at their end; ASN.1's own have the high byte first.
static std::string Utf8OfLittleEndian(ByteView bytes)
{
    std::string turned;
    for (std::size_t i = 0; i + 1 < bytes.size() && (bytes[i] || bytes[i + 1]); i += 2) {
        turned += static_cast<char>(bytes[i + 1]);
        turned += static_cast<char>(bytes[i]);
    }
    const std::unique_ptr<ASN1_STRING, Freed<ASN1_STRING_free>> text(
        ASN1_STRING_type_new(V_ASN1_BMPSTRING));
    ASN1_STRING_set(text.get(), turned.data(), static_cast<int>(turned.size()));
    return Utf8(text.get());
}

static void AddNameValue(CatalogAttributes& attributes, ByteView bytes)
{
    const Decoded<NameValue> pair(bytes, ASN1_ITEM_rptr(NameValue));
    if (pair.value)
        attributes.emplace(Utf8(pair.value->name), Utf8OfLittleEndian(BytesOf(pair.value->value)));
}

// --- members ---------------------------------------------------------------------------------------

constexpr char kNameValue[] = "1.3.6.1.4.1.311.12.2.1";
constexpr char kKind[] = "1.3.6.1.4.1.311.12.2.3";
constexpr char kHash[] = "1.3.6.1.4.1.311.2.1.4";
constexpr std::size_t kSha1 = 20, kSha256 = 32;

static bool IsHash(std::size_t length)
{
    return length == kSha1 || length == kSha256;
}

// A tag is a hash, or in the first generation of catalogs its hexadecimal digits as text.
static std::string HashOfTag(ByteView tag)
{
    if (IsHash(tag.size()))
        return {tag.begin(), tag.end()};
    const std::string digits = Utf8OfLittleEndian(tag);
    long length = 0;
    const std::unique_ptr<unsigned char, decltype([](unsigned char* p) { OPENSSL_free(p); })> bytes(
        OPENSSL_hexstr2buf(digits.c_str(), &length));
    if (!bytes || !IsHash(static_cast<std::size_t>(length)))
        return {};
    return {bytes.get(), bytes.get() + length};
}

// The attribute holds nothing but a context tag: [0] for an image, [2] for any other file.
static std::optional<bool> KindOf(const ASN1_TYPE& value)
{
    if (value.type != V_ASN1_OTHER)
        return std::nullopt;
    const unsigned char* data = value.value.asn1_string->data;
    long length = 0;
    int tag = 0;
    int objectClass = 0;
    if ((ASN1_get_object(&data, &length, &tag, &objectClass, value.value.asn1_string->length) &
         0x80) ||
        objectClass != V_ASN1_CONTEXT_SPECIFIC || (tag != 0 && tag != 2))
        return std::nullopt;
    return tag == 0;
}

static void AddMember(TrustList& list, const Subject& subject)
{
    CatalogMember member;
    const std::string hash = HashOfTag(BytesOf(subject.tag));
    bool counts = !hash.empty();
    for (int i = 0; i < sk_X509_ATTRIBUTE_num(subject.attributes); ++i) {
        X509_ATTRIBUTE* attribute = sk_X509_ATTRIBUTE_value(subject.attributes, i);
        const std::string identifier = TextOf(X509_ATTRIBUTE_get0_object(attribute));
        const ASN1_TYPE* value = X509_ATTRIBUTE_get0_type(attribute, 0);
        if (!value)
            continue;
        const bool isSequence = value->type == V_ASN1_SEQUENCE;
        if (identifier == kNameValue && isSequence) {
            AddNameValue(member.attributes, BytesOf(value->value.sequence));
        } else if (identifier == kKind) {
            member.ofImage = KindOf(*value);
        } else if (identifier == kHash) {
            const auto stated =
                isSequence ? ReadStatedHash(BytesOf(value->value.sequence)) : std::nullopt;
            counts = counts && stated && stated->digest == hash &&
                     static_cast<std::size_t>(EVP_MD_get_size(stated->algorithm)) == hash.size();
            if (stated)
                member.ofImage = stated->ofImage;
        }
    }
    if (counts)
        list.members.emplace(hash, std::move(member));
}

std::optional<TrustList> ReadTrustList(ByteView bytes)
{
    const Decoded<List> decoded(bytes, ASN1_ITEM_rptr(List));
    if (!decoded.value)
        return std::nullopt;
    TrustList list;
    for (int i = 0; i < sk_Subject_num(decoded.value->subjects); ++i)
        AddMember(list, *sk_Subject_value(decoded.value->subjects, i));
    const STACK_OF(X509_EXTENSION)* extensions = decoded.value->extensions;
    for (int i = 0; i < sk_X509_EXTENSION_num(extensions); ++i) {
        X509_EXTENSION* extension = sk_X509_EXTENSION_value(extensions, i);
        if (TextOf(X509_EXTENSION_get_object(extension)) == kNameValue)
            AddNameValue(list.attributes, BytesOf(X509_EXTENSION_get_data(extension)));
    }
    return list;
}

} // namespace kestro::servicing
