// signer.cpp - what the certificate that signed a message says about its signature.
#include "signer.h"

#include <algorithm>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <vector>

namespace kestro::servicing {

using Usages = std::unique_ptr<EXTENDED_KEY_USAGE, Freed<EXTENDED_KEY_USAGE_free>>;
using Cms = std::unique_ptr<CMS_ContentInfo, Freed<CMS_ContentInfo_free>>;
using StampContent = std::unique_ptr<TS_TST_INFO, Freed<TS_TST_INFO_free>>;
using CounterSignature = std::unique_ptr<PKCS7_SIGNER_INFO, Freed<PKCS7_SIGNER_INFO_free>>;
using BioChain = std::unique_ptr<BIO, Freed<BIO_free_all>>;
using Time = std::unique_ptr<ASN1_TIME, Freed<ASN1_STRING_free>>;

// --- when it was signed ------------------------------------------------------------------------

// The hash of the signer's signature, which is what a time stamp is made over.
static std::string HashOfSignature(const PKCS7_SIGNER_INFO& signer, const EVP_MD* algorithm)
{
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    const ASN1_OCTET_STRING* signature = signer.enc_digest;
    if (!algorithm || EVP_Digest(signature->data, static_cast<std::size_t>(signature->length), hash,
                                 &length, algorithm, nullptr) != 1)
        return {};
    return {hash, hash + length};
}

static const ASN1_TYPE* UnsignedAttribute(const PKCS7_SIGNER_INFO& signer, const char* identifier)
{
    for (int i = 0; i < sk_X509_ATTRIBUTE_num(signer.unauth_attr); ++i) {
        X509_ATTRIBUTE* attribute = sk_X509_ATTRIBUTE_value(signer.unauth_attr, i);
        if (TextOf(X509_ATTRIBUTE_get0_object(attribute)) == identifier)
            return X509_ATTRIBUTE_get0_type(attribute, 0);
    }
    return nullptr;
}

static const unsigned char* DataOf(const ASN1_TYPE* sequence, long& length)
{
    if (!sequence || sequence->type != V_ASN1_SEQUENCE)
        return nullptr;
    length = sequence->value.sequence->length;
    return sequence->value.sequence->data;
}

// An RFC 3161 time stamp, which Microsoft keeps under an identifier of its own. Its certificates may be of
// kinds that PKCS #7 does not know, and CMS does.
static Time StampedTime(const PKCS7_SIGNER_INFO& signer)
{
    long length = 0;
    const auto* data = DataOf(UnsignedAttribute(signer, "1.3.6.1.4.1.311.3.3.1"), length);
    const Cms token(data ? d2i_CMS_ContentInfo(nullptr, &data, length) : nullptr);
    if (!token || OBJ_obj2nid(CMS_get0_type(token.get())) != NID_pkcs7_signed ||
        OBJ_obj2nid(CMS_get0_eContentType(token.get())) != NID_id_smime_ct_TSTInfo ||
        CMS_verify(token.get(), nullptr, nullptr, nullptr, nullptr,
                   CMS_BINARY | CMS_NO_SIGNER_CERT_VERIFY) != 1)
        return nullptr;
    ASN1_OCTET_STRING** encoded = CMS_get0_content(token.get());
    const unsigned char* at = *encoded ? (*encoded)->data : nullptr;
    const StampContent content(at ? d2i_TS_TST_INFO(nullptr, &at, (*encoded)->length) : nullptr);
    if (!content)
        return nullptr;
    TS_MSG_IMPRINT* imprint = TS_TST_INFO_get_msg_imprint(content.get());
    const EVP_MD* algorithm = EVP_get_digestbyobj(TS_MSG_IMPRINT_get_algo(imprint)->algorithm);
    const ASN1_OCTET_STRING* stamped = TS_MSG_IMPRINT_get_msg(imprint);
    const std::string hash = HashOfSignature(signer, algorithm);
    if (hash.empty() || hash != std::string(stamped->data, stamped->data + stamped->length))
        return nullptr;
    return Time(ASN1_STRING_dup(TS_TST_INFO_get_time(content.get())));
}

// The counter-signature of the years before RFC 3161: a second signer whose content is the signature.
static Time CounterSignedTime(PKCS7& message, const PKCS7_SIGNER_INFO& signer)
{
    long length = 0;
    const auto* data = DataOf(UnsignedAttribute(signer, "1.2.840.113549.1.9.6"), length);
    if (!data)
        return nullptr;
    const CounterSignature stamp(reinterpret_cast<PKCS7_SIGNER_INFO*>(
        ASN1_item_d2i(nullptr, &data, length, ASN1_ITEM_rptr(PKCS7_SIGNER_INFO))));
    const EVP_MD* algorithm = stamp ? EVP_get_digestbyobj(stamp->digest_alg->algorithm) : nullptr;
    X509* certificate = stamp ? X509_find_by_issuer_and_serial(message.d.sign->cert,
                                                               stamp->issuer_and_serial->issuer,
                                                               stamp->issuer_and_serial->serial)
                              : nullptr;
    const ASN1_TYPE* time =
        stamp ? PKCS7_get_signed_attribute(stamp.get(), NID_pkcs9_signingTime) : nullptr;
    if (!algorithm || !certificate || !time)
        return nullptr;
    const BioChain digest(BIO_new(BIO_f_md()));
    BIO_set_md(digest.get(), algorithm);
    BIO_push(digest.get(), BIO_new(BIO_s_null()));
    BIO_write(digest.get(), signer.enc_digest->data, signer.enc_digest->length);
    if (PKCS7_signatureVerify(digest.get(), &message, stamp.get(), certificate) != 1 ||
        (time->type != V_ASN1_UTCTIME && time->type != V_ASN1_GENERALIZEDTIME))
        return nullptr;
    return Time(ASN1_STRING_dup(time->value.asn1_string));
}

static Time TimeOfSigning(PKCS7& message, std::time_t now)
{
    const PKCS7_SIGNER_INFO* signer =
        sk_PKCS7_SIGNER_INFO_value(PKCS7_get_signer_info(&message), 0);
    if (Time time = StampedTime(*signer))
        return time;
    if (Time time = CounterSignedTime(message, *signer))
        return time;
    return Time(ASN1_TIME_set(nullptr, now));
}

// --- who signed it -----------------------------------------------------------------------------

// By the purposes that the certificate is for. One that names none is for all.
static std::uint32_t ScoreOf(const X509& certificate)
{
    const Usages usages(static_cast<EXTENDED_KEY_USAGE*>(
        X509_get_ext_d2i(&certificate, NID_ext_key_usage, nullptr, nullptr)));
    if (!usages)
        return score::authenticode;
    std::vector<std::string> purposes;
    for (int i = 0; i < sk_ASN1_OBJECT_num(usages.get()); ++i)
        purposes.push_back(TextOf(sk_ASN1_OBJECT_value(usages.get(), i)));
    const auto isFor = [&](const char* purpose) {
        return std::find(purposes.begin(), purposes.end(), purpose) != purposes.end();
    };
    constexpr char whql[] = "1.3.6.1.4.1.311.10.3.5", attested[] = "1.3.6.1.4.1.311.10.3.5.1";
    if (isFor(whql) || isFor(attested))
        return score::whql;
    constexpr char windowsSystem[] = "1.3.6.1.4.1.311.10.3.6";
    if (isFor(windowsSystem))
        return score::in_box;
    constexpr char codeSigning[] = "1.3.6.1.5.5.7.3.3", anything[] = "2.5.29.37.0";
    return isFor(codeSigning) || isFor(anything) ? score::authenticode : score::without_signature;
}

// Whether one of the certificates in the message poses as the issuer of another and did not sign it.
static bool HasABrokenChain(const STACK_OF(X509) * certificates, X509* certificate)
{
    constexpr int longestChain = 10;
    for (int depth = 0; depth < longestChain; ++depth) {
        X509* issuer = nullptr;
        for (int i = 0; i < sk_X509_num(certificates) && !issuer; ++i)
            if (X509_check_issued(sk_X509_value(certificates, i), certificate) == X509_V_OK)
                issuer = sk_X509_value(certificates, i);
        if (!issuer)
            return false;
        if (X509_verify(certificate, X509_get0_pubkey(issuer)) != 1)
            return true;
        if (issuer == certificate)
            return false;
        certificate = issuer;
    }
    return true;
}

static std::string CommonName(const X509& certificate)
{
    const X509_NAME* subject = X509_get_subject_name(&certificate);
    const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    unsigned char* text = nullptr;
    const int length =
        index < 0 ? -1
                  : ASN1_STRING_to_UTF8(
                        &text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
    std::string name = length < 0 ? std::string() : std::string(text, text + length);
    OPENSSL_free(text);
    return name;
}

Signer SignerOf(PKCS7& message, std::time_t now)
{
    const std::unique_ptr<STACK_OF(X509),
                          decltype([](STACK_OF(X509) * list) { sk_X509_free(list); })>
        signers(PKCS7_get0_signers(&message, nullptr, 0));
    if (!signers || sk_X509_num(signers.get()) == 0)
        return {"", score::without_signature, "its signer's certificate is not in it"};
    X509* certificate = sk_X509_value(signers.get(), 0);
    Signer signer{CommonName(*certificate), ScoreOf(*certificate), ""};
    const Time time = TimeOfSigning(message, now);
    if (signer.score == score::without_signature)
        signer.distrust = "the certificate of " + signer.name + " is not for signing code";
    else if (ASN1_TIME_compare(X509_get0_notBefore(certificate), time.get()) > 0 ||
             ASN1_TIME_compare(X509_get0_notAfter(certificate), time.get()) < 0)
        signer.distrust = "the certificate of " + signer.name +
                          " was not valid at the time of signing, and no time stamp says otherwise";
    else if (HasABrokenChain(message.d.sign->cert, certificate))
        signer.distrust = "the certificate of " + signer.name +
                          " was not issued by the certificates that come with it";
    return signer;
}

} // namespace kestro::servicing
