// catalog.cpp - what a package's signed catalog says about it.
#include "catalog.h"

#include "file_system.h"
#include "servicing_error.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <span>
#include <vector>

namespace fs = std::filesystem;

namespace kestro::servicing {

using Bytes = std::vector<unsigned char>;
using ByteView = std::span<const unsigned char>;

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T* object) const
    {
        Free(object);
    }
};
using Pkcs7 = std::unique_ptr<PKCS7, Freed<PKCS7_free>>;
using Bio = std::unique_ptr<BIO, Freed<BIO_free>>;
using BioChain = std::unique_ptr<BIO, Freed<BIO_free_all>>;
using CertificateStore = std::unique_ptr<X509_STORE, Freed<X509_STORE_free>>;

static Bytes ReadBytes(const fs::path& file)
{
    const std::string content = ReadWholeFile(file);
    return {content.begin(), content.end()};
}

// The object identifier of a Windows certificate trust list, which is what a catalog is.
constexpr char kTrustList[] = "1.3.6.1.4.1.311.10.1";

// The signed content of a catalog without its outer header; empty if the file is no catalog.
static ByteView TrustListOf(const PKCS7& message)
{
    // A message may name the type of its content and hold none.
    if (!PKCS7_type_is_signed(const_cast<PKCS7*>(&message)) || !message.d.sign)
        return {};
    const PKCS7* content = message.d.sign->contents;
    char type[sizeof kTrustList + 1];
    OBJ_obj2txt(type, sizeof type, content->type, 1);
    if (std::string_view(type) != kTrustList || !content->d.other ||
        content->d.other->type != V_ASN1_SEQUENCE)
        return {};
    const ASN1_STRING* sequence = content->d.other->value.sequence;
    const unsigned char* data = sequence->data;
    long length = 0;
    int tag = 0;
    int objectClass = 0;
    if (ASN1_get_object(&data, &length, &tag, &objectClass, sequence->length) & 0x80)
        return {};
    return {data, static_cast<std::size_t>(length)};
}

// PKCS7_verify leaves memory behind when a message names a digest that OpenSSL does not have.
static bool DigestsAreKnown(PKCS7& message)
{
    BioChain nothing(BIO_new(BIO_s_null()));
    const BioChain digests(PKCS7_dataInit(&message, nothing.get()));
    // The chain ends in what it was made over.
    if (digests)
        static_cast<void>(nothing.release());
    return digests != nullptr;
}

static bool SignatureFits(PKCS7& message, ByteView content)
{
    if (!DigestsAreKnown(message))
        return false;
    const Bio bio(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    const CertificateStore none(X509_STORE_new());
    return PKCS7_verify(&message, nullptr, none.get(), bio.get(), nullptr, PKCS7_NOVERIFY) == 1;
}

static bool Lists(ByteView content, ByteView file, const EVP_MD* algorithm)
{
    // An OCTET STRING: tag, length, digest.
    unsigned char entry[2 + EVP_MAX_MD_SIZE] = {0x04};
    unsigned length = 0;
    EVP_Digest(file.data(), file.size(), entry + 2, &length, algorithm, nullptr);
    entry[1] = static_cast<unsigned char>(length);
    return std::search(content.begin(), content.end(), entry, entry + 2 + length) != content.end();
}

static std::string SignerOf(PKCS7& message)
{
    STACK_OF(X509)* signers = PKCS7_get0_signers(&message, nullptr, 0);
    std::string name;
    if (signers && sk_X509_num(signers) > 0) {
        char text[256] = "";
        X509_NAME_get_text_by_NID(X509_get_subject_name(sk_X509_value(signers, 0)), NID_commonName,
                                  text, sizeof text);
        name = text;
    }
    sk_X509_free(signers);
    return name;
}

CatalogVerdict CheckCatalog(const fs::path& catalog, const fs::path& inf)
{
    std::error_code ignored;
    if (!fs::is_regular_file(catalog, ignored))
        return {};
    const Bytes bytes = ReadBytes(catalog);
    const unsigned char* data = bytes.data();
    const Pkcs7 message(d2i_PKCS7(nullptr, &data, static_cast<long>(bytes.size())));
    const ByteView content = message ? TrustListOf(*message) : ByteView();
    if (content.empty() || !SignatureFits(*message, content))
        return {CatalogState::NotSigned, ""};
    const Bytes infBytes = ReadBytes(inf);
    if (!Lists(content, infBytes, EVP_sha256()) && !Lists(content, infBytes, EVP_sha1()))
        return {CatalogState::InfNotListed, ""};
    return {CatalogState::Signed, SignerOf(*message)};
}

ContentHash::ContentHash() : state_(EVP_MD_CTX_new())
{
    EVP_DigestInit_ex(static_cast<EVP_MD_CTX*>(state_), EVP_sha256(), nullptr);
}

ContentHash::~ContentHash()
{
    EVP_MD_CTX_free(static_cast<EVP_MD_CTX*>(state_));
}

void ContentHash::Add(std::string_view text)
{
    // The length keeps neighbouring texts apart.
    const std::uint64_t size = text.size();
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(state_), &size, sizeof size);
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(state_), text.data(), text.size());
}

void ContentHash::AddFile(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw ServicingError(code::file_not_found, "cannot read " + file.string());
    std::uint64_t size = 0;
    char block[1 << 16];
    while (in.read(block, sizeof block), in.gcount() > 0) {
        const auto length = static_cast<std::size_t>(in.gcount());
        EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(state_), block, length);
        size += length;
    }
    if (in.bad())
        throw ServicingError(code::read_fault, "cannot read " + file.string());
    EVP_DigestUpdate(static_cast<EVP_MD_CTX*>(state_), &size, sizeof size);
}

std::string ContentHash::Finish()
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_DigestFinal_ex(static_cast<EVP_MD_CTX*>(state_), digest, &length);
    std::string text;
    for (int i = 0; i < 8; ++i) {
        constexpr char digits[] = "0123456789abcdef";
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

} // namespace kestro::servicing
