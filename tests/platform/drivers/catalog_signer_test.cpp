// catalog_signer_test.cpp - who signed a catalog and when, and for which versions of Windows.
#include "catalog_case.h"

namespace kestro::test {
namespace {

// --- signers ---------------------------------------------------------------------------------------

TEST_F(Catalogs, NameAndScoreFollowTheCertificate)
{
    const SampleSigner selfMade({"Self Made", {samples::kWhql}});
    const SampleSigner anything({"For Anything", {}});
    const struct {
        const SampleSigner& signer;
        const char* name;
        std::uint32_t score;
    } cases[] = {{samples::WhqlSigner(), "Kestro Samples Compatibility Publisher", 0x0D000005},
                 {samples::AttestedSigner(), "Kestro Samples Attested Publisher", 0x0D000005},
                 {samples::SystemSigner(), "Kestro Samples Windows Publisher", 0x0D000003},
                 {samples::MakerSigner(), "Kestro Samples", 0x0F000000},
                 {anything, "For Anything", 0x0F000000},
                 {selfMade, "Self Made", 0x0D000005}};
    for (const auto& [signer, name, score] : cases) {
        const CatalogVerdict verdict = Check(catalog_.SignedBy(signer));
        EXPECT_EQ(verdict.state, CatalogState::Signed) << name << verdict.reason;
        EXPECT_EQ(verdict.signer, name);
        EXPECT_EQ(verdict.signerScore, score) << name;
    }
}

TEST_F(Catalogs, ACertificateThatIsNotForSigningCode)
{
    const SampleSigner server({"Web Server", {samples::kWebServer}}, &RootSigner());
    const CatalogVerdict verdict = Check(catalog_.SignedBy(server));
    EXPECT_EQ(verdict.state, CatalogState::NotTrusted);
    EXPECT_EQ(verdict.reason,
              "is not trusted: the certificate of Web Server is not for signing code");
}

TEST_F(Catalogs, ACertificateThatIsOutOfDate)
{
    const SampleSigner expired(
        {"Expired", {samples::kCodeSigning}, "20200101000000Z", "20210101000000Z"}, &RootSigner());
    const SampleSigner clock({"Clock", {samples::kTimeStamping}}, &RootSigner());
    EXPECT_EQ(Check(catalog_.SignedBy(expired)).state, CatalogState::NotTrusted);
    for (const auto stamp : {SampleSigner::Stamp::Rfc3161, SampleSigner::Stamp::CounterSignature}) {
        const auto stamped = [&](const char* time) {
            return expired.SignAt(samples::kTrustList, catalog_.List(), clock, time, stamp);
        };
        EXPECT_EQ(Check(stamped("20200701000000Z")).state, CatalogState::Signed);
        EXPECT_EQ(Check(stamped("20220701000000Z")).state, CatalogState::NotTrusted);
        // A stamp that was changed: "200701" stands in both forms of a time.
        std::string changed = stamped("20200701000000Z");
        changed.replace(changed.rfind("200701000000Z"), 6, "200702");
        EXPECT_EQ(Check(changed).state, CatalogState::NotTrusted);
    }
}

TEST_F(Catalogs, ACertificateThatItsIssuerDidNotSign)
{
    std::string bytes = catalog_.SignedBy(MakerSigner());
    unsigned char* der = nullptr;
    const int length = i2d_X509(MakerSigner().Certificate(), &der);
    const std::string certificate(der, der + length);
    OPENSSL_free(der);
    const std::size_t end = bytes.find(certificate) + certificate.size() - 1;
    bytes[end] = static_cast<char>(bytes[end] ^ 1);
    const CatalogVerdict verdict = Check(bytes);
    EXPECT_EQ(verdict.state, CatalogState::NotTrusted);
    EXPECT_NE(verdict.reason.find("was not issued by"), std::string::npos) << verdict.reason;
}

TEST_F(Catalogs, AListThatWasChangedAfterItWasSigned)
{
    std::string bytes = catalog_.SignedBy(MakerSigner());
    const std::size_t at = bytes.find(catalog_.files[0].sha256);
    bytes[at] = static_cast<char>(bytes[at] ^ 1);
    EXPECT_EQ(Check(bytes).state, CatalogState::Altered);
}

TEST_F(Catalogs, WhatIsNoSignedCatalog)
{
    EXPECT_EQ(Check("").state, CatalogState::NotSigned);
    EXPECT_EQ(Check("no catalog").state, CatalogState::NotSigned);
    EXPECT_EQ(Check(catalog_.List()).state, CatalogState::NotSigned);
    EXPECT_EQ(Check(MakerSigner().Sign(samples::kIndirectData, catalog_.List())).state,
              CatalogState::NotSigned);
    // A trust list by its name alone.
    EXPECT_EQ(Check(MakerSigner().Sign(samples::kTrustList, "\x30\x03\x02\x01\x05")).state,
              CatalogState::NotSigned);
    EXPECT_EQ(servicing::CheckCatalog(folder_ / "none.cat", Files()).state, CatalogState::Missing);
    EXPECT_EQ(servicing::CheckCatalog(folder_, Files()).state, CatalogState::Missing);
}

TEST_F(Catalogs, DamagedAnywhereAreNeverBetterThanWhole)
{
    const std::string good = catalog_.SignedBy(MakerSigner());
    for (std::size_t at = 0; at < good.size(); at += 13) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0x41);
        const CatalogVerdict verdict = Check(bad);
        EXPECT_EQ(verdict.signer.empty(), verdict.state != CatalogState::Signed) << at;
        EXPECT_NE(Check(good.substr(0, at)).state, CatalogState::Signed) << at;
    }
}

// --- versions of Windows and attributes ------------------------------------------------------------

TEST_F(Catalogs, AreForTheirWindowsAndLater)
{
    const struct {
        std::optional<std::string> attribute;
        servicing::WindowsVersion windows;
        CatalogState state;
    } cases[] = {{"2:10.0", {10, 0}, CatalogState::Signed},
                 {"2:10.0", {6, 3}, CatalogState::ForOtherWindows},
                 {"2:6.1,2:10.0", {6, 1}, CatalogState::Signed},
                 {"2:6.1", {10, 0}, CatalogState::Signed},
                 {"2:6.2,2:6.3", {6, 1}, CatalogState::ForOtherWindows},
                 {"2:5.x", {5, 2}, CatalogState::Signed},
                 {"1:4.x,2:10.0", {6, 1}, CatalogState::ForOtherWindows},
                 {"2:10", {6, 1}, CatalogState::Signed},
                 {std::nullopt, {6, 1}, CatalogState::Signed}};
    for (const auto& [attribute, windows, state] : cases) {
        catalog_.osAttribute = attribute;
        EXPECT_EQ(Check(catalog_.SignedBy(MakerSigner()), windows).state, state)
            << attribute.value_or("none") << " on " << windows.major << "." << windows.minor;
    }
    // The catalog's own attribute counts where a member has none.
    catalog_.osAttribute.reset();
    catalog_.attributes = {{"OSAttr", "2:10.0"}};
    EXPECT_EQ(Check(catalog_.SignedBy(MakerSigner()), servicing::WindowsVersion{6, 1}).state,
              CatalogState::ForOtherWindows);
}

TEST_F(Catalogs, AttributesForTheDriverDatabase)
{
    EXPECT_EQ(Check().attributes, std::nullopt);
    EXPECT_EQ(Check().submissionId, "");
    catalog_.attributes = {
        {"Declarative", "True"}, {"Universal", "True"}, {"Submission ID", "1_2_3"}};
    EXPECT_EQ(Check().attributes, 0x80000003u);
    EXPECT_EQ(Check().submissionId, "1_2_3");
    catalog_.attributes["Universal"] = "False";
    EXPECT_EQ(Check().attributes, 0x80000002u);
}

TEST_F(Catalogs, StatesHaveTheCodesOfWindows)
{
    const auto code = [](CatalogState state) { return static_cast<unsigned>(CodeOf(state)); };
    EXPECT_EQ(code(CatalogState::Missing), 0x800F022F);
    EXPECT_EQ(code(CatalogState::NotSigned), 0x800F0247);
    EXPECT_EQ(code(CatalogState::Altered), 0x80096010);
    EXPECT_EQ(code(CatalogState::NotTrusted), 0x800F0242);
    EXPECT_EQ(code(CatalogState::FileNotListed), 0x800F024B);
    EXPECT_EQ(code(CatalogState::ForOtherWindows), 0x800F0244);
    EXPECT_EQ(code(CatalogState::Signed), 0u);
}

} // namespace
} // namespace kestro::test
