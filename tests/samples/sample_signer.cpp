// sample_signer.cpp - keys and certificates that catalogs and drivers of the tests are signed with.
#include "sample_signer.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/objects.h>
#include <openssl/param_build.h>
#include <openssl/pkcs7.h>
#include <openssl/x509v3.h>
#include <stdexcept>

namespace kestro::samples {
namespace {

template <auto Free>
struct Freed {
    template <class T>
    void operator()(T* object) const
    {
        Free(object);
    }
};
using Number = std::unique_ptr<BIGNUM, Freed<BN_free>>;
using NumberContext = std::unique_ptr<BN_CTX, Freed<BN_CTX_free>>;
using Message = std::unique_ptr<PKCS7, Freed<PKCS7_free>>;

void Require(bool worked, const char* what)
{
    if (!worked)
        throw std::runtime_error(std::string("cannot make ") + what);
}

std::string Hash(const std::string& text)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_Digest(text.data(), text.size(), digest, &length, EVP_sha256(), nullptr);
    return {digest, digest + length};
}

// --- keys ------------------------------------------------------------------------------------------

constexpr unsigned long kExponent = 65537;

// The first prime of 1024 bits after a number that follows from the text and fits an RSA key.
Number PrimeFor(const std::string& text, BN_CTX* context)
{
    std::string bytes;
    for (int i = 0; i < 4; ++i)
        bytes += Hash(text + " " + std::to_string(i));
    Number prime(BN_bin2bn(reinterpret_cast<const unsigned char*>(bytes.data()),
                           static_cast<int>(bytes.size()), nullptr));
    // Both top bits: the product of two such numbers has twice their bits.
    for (const int bit : {0, 1022, 1023})
        BN_set_bit(prime.get(), bit);
    while (BN_mod_word(prime.get(), kExponent) == 1 ||
           BN_check_prime(prime.get(), context, nullptr) != 1)
        BN_add_word(prime.get(), 2);
    return prime;
}

std::shared_ptr<EVP_PKEY> KeyFor(const std::string& name)
{
    const NumberContext context(BN_CTX_new());
    const Number p = PrimeFor(name + " p", context.get()), q = PrimeFor(name + " q", context.get());
    const Number n(BN_new()), e(BN_new()), phi(BN_new()), p1(BN_dup(p.get())), q1(BN_dup(q.get()));
    BN_sub_word(p1.get(), 1);
    BN_sub_word(q1.get(), 1);
    BN_mul(n.get(), p.get(), q.get(), context.get());
    BN_mul(phi.get(), p1.get(), q1.get(), context.get());
    BN_set_word(e.get(), kExponent);
    const Number d(BN_mod_inverse(nullptr, e.get(), phi.get(), context.get()));
    Require(d != nullptr, "a key");

    OSSL_PARAM_BLD* builder = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_E, e.get());
    OSSL_PARAM_BLD_push_BN(builder, OSSL_PKEY_PARAM_RSA_D, d.get());
    OSSL_PARAM* parameters = OSSL_PARAM_BLD_to_param(builder);
    EVP_PKEY_CTX* maker = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    EVP_PKEY* key = nullptr;
    const bool made = EVP_PKEY_fromdata_init(maker) == 1 &&
                      EVP_PKEY_fromdata(maker, &key, EVP_PKEY_KEYPAIR, parameters) == 1;
    EVP_PKEY_CTX_free(maker);
    OSSL_PARAM_free(parameters);
    OSSL_PARAM_BLD_free(builder);
    Require(made, "a key");
    return {key, &EVP_PKEY_free};
}

// --- certificates ----------------------------------------------------------------------------------

void AddExtension(X509* certificate, int kind, const std::string& value)
{
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
    Require(extension != nullptr, "a certificate's extension");
    X509_add_ext(certificate, extension, -1);
    X509_EXTENSION_free(extension);
}

void SetTime(ASN1_TIME* field, const std::string& time)
{
    Require(ASN1_TIME_set_string_X509(field, time.c_str()) == 1, "a time");
}

std::shared_ptr<X509> CertificateFor(const SignerTerms& terms, EVP_PKEY* key,
                                     const SampleSigner* issuer)
{
    std::shared_ptr<X509> certificate(X509_new(), &X509_free);
    X509_set_version(certificate.get(), X509_VERSION_3);
    const std::string serial = Hash(terms.name);
    ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()),
                            static_cast<unsigned char>(serial[0]) * 256u +
                                static_cast<unsigned char>(serial[1]));
    X509_NAME* name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(terms.name.c_str()), -1, -1,
                               0);
    X509_set_issuer_name(certificate.get(),
                         issuer ? X509_get_subject_name(issuer->Certificate()) : name);
    SetTime(X509_getm_notBefore(certificate.get()), terms.from);
    SetTime(X509_getm_notAfter(certificate.get()), terms.until);
    X509_set_pubkey(certificate.get(), key);
    AddExtension(certificate.get(), NID_basic_constraints, issuer ? "CA:FALSE" : "CA:TRUE");
    std::string usages;
    for (const auto& usage : terms.usages)
        usages += (usages.empty() ? "" : ",") + usage;
    if (!usages.empty())
        AddExtension(certificate.get(), NID_ext_key_usage, usages);
    Require(X509_sign(certificate.get(), issuer ? issuer->Key() : key, EVP_sha256()) > 0,
            "a certificate");
    return certificate;
}

// --- messages --------------------------------------------------------------------------------------

ASN1_TYPE* SequenceValue(const std::string& bytes)
{
    ASN1_STRING* text = ASN1_STRING_new();
    ASN1_STRING_set(text, bytes.data(), static_cast<int>(bytes.size()));
    ASN1_TYPE* value = ASN1_TYPE_new();
    ASN1_TYPE_set(value, V_ASN1_SEQUENCE, text);
    return value;
}

// What is signed of a SEQUENCE is what follows its header.
std::string WithoutHeader(const std::string& sequence)
{
    const auto* data = reinterpret_cast<const unsigned char*>(sequence.data());
    long length = 0;
    int tag = 0;
    int objectClass = 0;
    ASN1_get_object(&data, &length, &tag, &objectClass, static_cast<long>(sequence.size()));
    return {data, data + length};
}

void AddSignedAttributes(PKCS7_SIGNER_INFO* signer, ASN1_OBJECT* contentType,
                         const std::string& content, const std::string& time)
{
    const std::string digest = Hash(content);
    PKCS7_add_attrib_content_type(signer, contentType);
    ASN1_TIME* when = ASN1_TIME_new();
    SetTime(when, time);
    PKCS7_add0_attrib_signing_time(signer, when);
    PKCS7_add1_attrib_digest(signer, reinterpret_cast<const unsigned char*>(digest.data()),
                             static_cast<int>(digest.size()));
    Require(PKCS7_SIGNER_INFO_sign(signer) == 1, "a signature");
}

Message SignedMessage(const SampleSigner& by, const char* contentType, const std::string& sequence)
{
    Message message(PKCS7_new());
    PKCS7_set_type(message.get(), NID_pkcs7_signed);
    PKCS7* content = message->d.sign->contents;
    ASN1_OBJECT_free(content->type);
    content->type = OBJ_txt2obj(contentType, 1);
    content->d.other = SequenceValue(sequence);
    PKCS7_SIGNER_INFO* signer =
        PKCS7_add_signature(message.get(), by.Certificate(), by.Key(), EVP_sha256());
    Require(signer != nullptr, "a signature");
    for (const SampleSigner* one = &by; one; one = one->Issuer())
        PKCS7_add_certificate(message.get(), one->Certificate());
    AddSignedAttributes(signer, OBJ_txt2obj(contentType, 1), WithoutHeader(sequence),
                        "20240924090013Z");
    return message;
}

std::string Encoded(const PKCS7& message)
{
    unsigned char* bytes = nullptr;
    const int length = i2d_PKCS7(&message, &bytes);
    Require(length > 0, "a message");
    std::string encoded(bytes, bytes + length);
    OPENSSL_free(bytes);
    return encoded;
}

} // namespace

SampleSigner::SampleSigner(const SignerTerms& terms, const SampleSigner* issuer)
    : issuer_(issuer), key_(KeyFor(terms.name)),
      certificate_(CertificateFor(terms, key_.get(), issuer))
{
}

std::string SampleSigner::Sign(const char* contentType, const std::string& sequence) const
{
    return Encoded(*SignedMessage(*this, contentType, sequence));
}

std::string SampleSigner::SignAt(const char* contentType, const std::string& sequence,
                                 const SampleSigner& clock, const std::string& time) const
{
    const Message message = SignedMessage(*this, contentType, sequence);
    PKCS7_SIGNER_INFO* signer = sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(message.get()), 0);
    PKCS7_SIGNER_INFO* stamp = PKCS7_SIGNER_INFO_new();
    PKCS7_SIGNER_INFO_set(stamp, clock.Certificate(), clock.Key(), EVP_sha256());
    AddSignedAttributes(
        stamp, OBJ_nid2obj(NID_pkcs7_data),
        {signer->enc_digest->data, signer->enc_digest->data + signer->enc_digest->length}, time);
    PKCS7_add_certificate(message.get(), clock.Certificate());
    unsigned char* bytes = nullptr;
    const int length = ASN1_item_i2d(reinterpret_cast<ASN1_VALUE*>(stamp), &bytes,
                                     ASN1_ITEM_rptr(PKCS7_SIGNER_INFO));
    ASN1_STRING* text = ASN1_STRING_new();
    ASN1_STRING_set(text, bytes, length);
    OPENSSL_free(bytes);
    PKCS7_SIGNER_INFO_free(stamp);
    PKCS7_add_attribute(signer, NID_pkcs9_countersignature, V_ASN1_SEQUENCE, text);
    return Encoded(*message);
}

const SampleSigner& RootSigner()
{
    static const SampleSigner signer({"Kestro Samples Root", {}});
    return signer;
}

const SampleSigner& WhqlSigner()
{
    static const SampleSigner signer(
        {"Kestro Samples Compatibility Publisher", {kWhql, kCodeSigning}}, &RootSigner());
    return signer;
}

const SampleSigner& AttestedSigner()
{
    static const SampleSigner signer(
        {"Kestro Samples Attested Publisher", {kAttested, kCodeSigning}}, &RootSigner());
    return signer;
}

const SampleSigner& SystemSigner()
{
    static const SampleSigner signer(
        {"Kestro Samples Windows Publisher", {kWindowsSystem, kCodeSigning}}, &RootSigner());
    return signer;
}

const SampleSigner& MakerSigner()
{
    static const SampleSigner signer({"Kestro Samples", {kCodeSigning}}, &RootSigner());
    return signer;
}

} // namespace kestro::samples
