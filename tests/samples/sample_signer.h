// sample_signer.h - keys and certificates that catalogs and drivers of the tests are signed with. All of it
// follows from the signer's name, so it is the same in every run; nobody should trust any of it.
#pragma once

#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <string>
#include <vector>

namespace kestro::samples {

struct SignerTerms {
    std::string name;
    std::vector<std::string> usages; // extended key usages; none: the certificate names no purpose
    std::string from = "20200101000000Z";
    std::string until = "20491231235959Z";
};

class SampleSigner {
  public:
    // Without an issuer the certificate is signed with its own key.
    explicit SampleSigner(const SignerTerms& terms, const SampleSigner* issuer = nullptr);

    X509* Certificate() const { return certificate_.get(); }
    EVP_PKEY* Key() const { return key_.get(); }
    const SampleSigner* Issuer() const { return issuer_; }

    // A signed message over a content that is a SEQUENCE, as bytes.
    std::string Sign(const char* contentType, const std::string& sequence) const;
    // The same with a stamp that tells the time of signing, as it is made today or was made before.
    enum class Stamp { Rfc3161, CounterSignature };
    std::string SignAt(const char* contentType, const std::string& sequence,
                       const SampleSigner& clock, const std::string& time, Stamp stamp) const;

  private:
    const SampleSigner* issuer_;
    std::shared_ptr<EVP_PKEY> key_;
    std::shared_ptr<X509> certificate_;
};

inline constexpr char kCodeSigning[] = "1.3.6.1.5.5.7.3.3";
inline constexpr char kWhql[] = "1.3.6.1.4.1.311.10.3.5";
inline constexpr char kAttested[] = "1.3.6.1.4.1.311.10.3.5.1";
inline constexpr char kWindowsSystem[] = "1.3.6.1.4.1.311.10.3.6";
inline constexpr char kWebServer[] = "1.3.6.1.5.5.7.3.1";
inline constexpr char kTimeStamping[] = "1.3.6.1.5.5.7.3.8";

// "Kestro Samples Root", and under it who signs the sample packages.
const SampleSigner& RootSigner();
const SampleSigner& WhqlSigner();     // "Kestro Samples Compatibility Publisher"
const SampleSigner& AttestedSigner(); // "Kestro Samples Attested Publisher"
const SampleSigner& SystemSigner();   // "Kestro Samples Windows Publisher"
const SampleSigner& MakerSigner();    // "Kestro Samples", for signing code and nothing else

} // namespace kestro::samples
