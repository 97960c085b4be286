// sample_signer.cpp - keys and certificates that catalogs and drivers of the tests are signed with.
#include "sample_signer.h"

#include "der.h"
#include "sample_image.h"
#include "sample_key.h"

#include <openssl/cms.h>
#include <openssl/objects.h>
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
using Message = std::unique_ptr<PKCS7, Freed<PKCS7_free>>;

void Require(bool worked, const char* what)
{
    if (!worked)
        throw std::runtime_error(std::string("cannot make ") + what);
}

std::string Hash(const std::string& text)
{
    return HashOf(text, EVP_sha256());
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

std::string CounterSignature(const SampleSigner& clock, const std::string& signature,
                             const std::string& time)
{
    const std::unique_ptr<PKCS7_SIGNER_INFO, Freed<PKCS7_SIGNER_INFO_free>> stamp(
        PKCS7_SIGNER_INFO_new());
    PKCS7_SIGNER_INFO_set(stamp.get(), clock.Certificate(), clock.Key(), EVP_sha256());
    AddSignedAttributes(stamp.get(), OBJ_nid2obj(NID_pkcs7_data), signature, time);
    unsigned char* bytes = nullptr;
    const int length = ASN1_item_i2d(reinterpret_cast<ASN1_VALUE*>(stamp.get()), &bytes,
                                     ASN1_ITEM_rptr(PKCS7_SIGNER_INFO));
    std::string encoded(bytes, bytes + length);
    OPENSSL_free(bytes);
    return encoded;
}

std::string TimeStampToken(const SampleSigner& clock, const std::string& hash,
                           const std::string& time)
{
    const std::string sha256 = DerSequence({DerObject("2.16.840.1.101.3.4.2.1"), Der(0x05, "")});
    const std::string said =
        DerSequence({Der(0x02, "\1"), DerObject("1.3.6.1.4.1.601.10.3.1"),
                     DerSequence({sha256, DerOctets(hash)}), Der(0x02, "\7"), Der(0x18, time)});
    const std::unique_ptr<BIO, Freed<BIO_free>> content(
        BIO_new_mem_buf(said.data(), static_cast<int>(said.size())));
    const std::unique_ptr<CMS_ContentInfo, Freed<CMS_ContentInfo_free>> token(
        CMS_sign(clock.Certificate(), clock.Key(), nullptr, nullptr, CMS_BINARY | CMS_PARTIAL));
    Require(token && CMS_set1_eContentType(token.get(), OBJ_nid2obj(NID_id_smime_ct_TSTInfo)) &&
                CMS_final(token.get(), content.get(), nullptr, CMS_BINARY),
            "a time stamp");
    unsigned char* bytes = nullptr;
    const int length = i2d_CMS_ContentInfo(token.get(), &bytes);
    std::string encoded(bytes, bytes + length);
    OPENSSL_free(bytes);
    return encoded;
}

// The attribute under which Microsoft keeps such a token. OpenSSL has no number for it.
int StampKind()
{
    static const int kind = OBJ_create("1.3.6.1.4.1.311.3.3.1", "msTimeStamp", "time stamp");
    return kind;
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
                                 const SampleSigner& clock, const std::string& time,
                                 Stamp stamp) const
{
    const Message message = SignedMessage(*this, contentType, sequence);
    PKCS7_SIGNER_INFO* signer = sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(message.get()), 0);
    const std::string signature(signer->enc_digest->data,
                                signer->enc_digest->data + signer->enc_digest->length);
    const bool today = stamp == Stamp::Rfc3161;
    const std::string value = today ? TimeStampToken(clock, Hash(signature), time)
                                    : CounterSignature(clock, signature, time);
    if (!today)
        PKCS7_add_certificate(message.get(), clock.Certificate());
    ASN1_STRING* text = ASN1_STRING_new();
    ASN1_STRING_set(text, value.data(), static_cast<int>(value.size()));
    PKCS7_add_attribute(signer, today ? StampKind() : NID_pkcs9_countersignature, V_ASN1_SEQUENCE,
                        text);
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
