// signed_message.h - a signed PKCS #7 message, as catalogs and signed images carry one, and its signer.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <openssl/pkcs7.h>
#include <optional>
#include <span>
#include <string>

namespace kestro::servicing {

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

// SignerScore of SetupAPI: the lower, the more a signature is worth.
namespace score {
inline constexpr std::uint32_t in_box = 0x0D000003;
inline constexpr std::uint32_t unclassified = 0x0D000004;
inline constexpr std::uint32_t whql = 0x0D000005;
inline constexpr std::uint32_t authenticode = 0x0F000000;
inline constexpr std::uint32_t without_signature = 0x80000000;
} // namespace score

struct Signer {
    std::string name; // the certificate's common name
    std::uint32_t score = score::without_signature;
    std::string distrust; // why its signature does not count; empty if it does
};

// Whether the signatures of a message were made over this content. The certificates are the message's.
bool SignaturesFit(PKCS7& message, ByteView content);

// Reading and checking is all inside the message: no root is known here and no revocation list asked.
class SignedMessage {
  public:
    // Nothing if these bytes are no signed message whose content is of that type.
    static std::optional<SignedMessage> Parse(ByteView bytes, const char* contentType);

    // The content without its outer header, which is what is signed.
    ByteView Content() const { return content_; }
    // The content with its header.
    ByteView ContentSequence() const;

    bool SignatureFits() const { return SignaturesFit(*message_, content_); }
    // Of a message whose signature fits. `now` counts where no time stamp says when it was signed.
    Signer FindSigner(std::time_t now) const;

  private:
    SignedMessage(Pkcs7 message, ByteView content) : message_(std::move(message)), content_(content)
    {
    }

    Pkcs7 message_;
    ByteView content_;
};

std::string TextOf(const ASN1_OBJECT* identifier);

} // namespace kestro::servicing
