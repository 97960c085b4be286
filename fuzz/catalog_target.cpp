// catalog_target.cpp - the signed catalog of a driver package, and a driver with a signature of its own.
#include "authenticode.h"
#include "catalog.h"
#include "scratch.h"
#include "servicing_error.h"
#include "targets.h"
#include "trust_list.h"

#include <openssl/evp.h>

namespace kestro::fuzz {

using namespace servicing;

// What only a signature that fits would let through otherwise.
static void ReadBehindTheSignature(ByteView input)
{
    ReadTrustList(input);
    ReadStatedHash(input);
    constexpr char trustList[] = "1.3.6.1.4.1.311.10.1";
    if (const auto message = SignedMessage::Parse(input, trustList)) {
        ReadTrustList(message->ContentSequence());
        const Signer signer = message->FindSigner(1'700'000'000);
        Require(signer.score != score::without_signature || !signer.distrust.empty(),
                "a signer without a score is distrusted");
    }
}

void Catalog(const std::string& input)
{
    // One of the seeds was signed for this INF.
    static const fs::path inf = KESTRO_SAMPLES "/kestrohid.inf";
    const Scratch scratch;
    const fs::path file = scratch / "package.cat";
    WriteFile(file, input);
    ReadBehindTheSignature({reinterpret_cast<const unsigned char*>(input.data()), input.size()});
    try {
        const CatalogVerdict verdict = CheckCatalog(file, {{inf, inf.filename()}});
        Require(verdict.state != CatalogState::Missing, "a catalog that is there is not missing");
        Require(verdict.signer.empty() || verdict.state == CatalogState::Signed,
                "only a signed package names a signer");
        const HashableFile content(file);
        Require(content.IsImage() || !content.Digest(EVP_sha256()).empty(),
                "what is no image has a hash");
        Require(content.IsImage() || !CarriesSignature(file), "only an image carries a signature");
    } catch (const ServicingError&) {
    }
}

} // namespace kestro::fuzz
