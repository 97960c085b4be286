// catalog_target.cpp - the signed catalog of a driver package.
#include "catalog.h"
#include "scratch.h"
#include "servicing_error.h"
#include "targets.h"

namespace kestro::fuzz {

void Catalog(const std::string& input)
{
    using namespace servicing;
    // One of the corpus's catalogs was signed for this INF.
    static const fs::path inf = KESTRO_FIXTURES "/drivers/tidepool/tidepoolhid.inf";
    const Scratch scratch;
    WriteFile(scratch / "package.cat", input);
    try {
        const CatalogVerdict verdict =
            CheckCatalog(scratch / "package.cat", {{inf, inf.filename()}});
        Require(verdict.state != CatalogState::Missing, "a catalog that is there is not missing");
        Require(verdict.signer.empty() || verdict.state == CatalogState::Signed,
                "only a signed package names a signer");
    } catch (const ServicingError&) {
    }
}

} // namespace kestro::fuzz
