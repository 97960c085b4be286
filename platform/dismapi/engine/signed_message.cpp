// signed_message.cpp - a signed PKCS #7 message and its signature.
#include "signed_message.h"

#include "signer.h"

#include <openssl/objects.h>
#include <openssl/x509.h>

namespace kestro::servicing {

using Bio = std::unique_ptr<BIO, Freed<BIO_free>>;
using BioChain = std::unique_ptr<BIO, Freed<BIO_free_all>>;
using CertificateStore = std::unique_ptr<X509_STORE, Freed<X509_STORE_free>>;

std::string TextOf(const ASN1_OBJECT* identifier)
{
    char text[128] = "";
    OBJ_obj2txt(text, sizeof text, identifier, 1);
    return text;
}

static ASN1_TYPE* ContentOf(const PKCS7& message, const char* contentType)
{
    // A message may name the type of its content and hold none.
    if (!PKCS7_type_is_signed(const_cast<PKCS7*>(&message)) || !message.d.sign)
        return nullptr;
    const PKCS7* content = message.d.sign->contents;
    if (TextOf(content->type) != contentType || !content->d.other ||
        content->d.other->type != V_ASN1_SEQUENCE)
        return nullptr;
    return content->d.other;
}

std::optional<SignedMessage> SignedMessage::Parse(ByteView bytes, const char* contentType)
{
    const unsigned char* at = bytes.data();
    Pkcs7 message(d2i_PKCS7(nullptr, &at, static_cast<long>(bytes.size())));
    const ASN1_TYPE* content = message ? ContentOf(*message, contentType) : nullptr;
    if (!content)
        return std::nullopt;
    const ASN1_STRING* sequence = content->value.sequence;
    const unsigned char* data = sequence->data;
    long length = 0;
    int tag = 0;
    int objectClass = 0;
    if (ASN1_get_object(&data, &length, &tag, &objectClass, sequence->length) & 0x80)
        return std::nullopt;
    return SignedMessage(std::move(message), {data, static_cast<std::size_t>(length)});
}

ByteView SignedMessage::ContentSequence() const
{
    const ASN1_STRING* sequence = message_->d.sign->contents->d.other->value.sequence;
    return {sequence->data, static_cast<std::size_t>(sequence->length)};
}

bool SignaturesFit(PKCS7& message, ByteView content)
{
    {
        // PKCS7_verify leaves memory behind when a message names a digest that OpenSSL does not have.
        BioChain nothing(BIO_new(BIO_s_null()));
        const BioChain digests(PKCS7_dataInit(&message, nothing.get()));
        if (!digests)
            return false;
        // The chain ends in what it was made over.
        static_cast<void>(nothing.release());
    }
    const Bio bio(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    const CertificateStore none(X509_STORE_new());
    return PKCS7_verify(&message, nullptr, none.get(), bio.get(), nullptr, PKCS7_NOVERIFY) == 1;
}

Signer SignedMessage::FindSigner(std::time_t now) const
{
    return SignerOf(*message_, now);
}

} // namespace kestro::servicing
