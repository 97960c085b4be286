// catalog_test.cpp - what a catalog says of a package's files: members, hashes, signers, versions of Windows.
#include "authenticode.h"
#include "catalog.h"
#include "files.h"
#include "sample_catalog.h"
#include "sample_image.h"

#include <gtest/gtest.h>

namespace kestro::test {
namespace {

using samples::Listing;
using samples::MakerSigner;
using samples::RootSigner;
using samples::SampleCatalog;
using samples::SampleImage;
using samples::SampleSigner;
using servicing::CatalogState;
using servicing::CatalogVerdict;
using servicing::PackageFile;

// A package of an INF, a driver and a table, and a catalog that lists them.
class Catalogs : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string pattern = fs::temp_directory_path() / "kestro-catalog-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        WriteFile(folder_ / "card.inf", kInf);
        WriteFile(folder_ / "card.sys", driver_.Bytes());
        WriteFile(folder_ / "card.bin", kTable);
        catalog_.files = {Listing("card.inf", kInf), Listing("card.sys", driver_),
                          Listing("card.bin", kTable)};
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::vector<PackageFile> Files(std::vector<std::string> names = {"card.inf", "card.sys",
                                                                     "card.bin"}) const
    {
        std::vector<PackageFile> files;
        for (const auto& name : names)
            files.push_back({folder_ / name, name});
        return files;
    }
    CatalogVerdict Check(const std::string& bytes,
                         std::optional<servicing::WindowsVersion> windows = std::nullopt) const
    {
        WriteFile(folder_ / "card.cat", bytes);
        return CheckCatalog(folder_ / "card.cat", Files(), windows);
    }
    CatalogVerdict Check() const { return Check(catalog_.SignedBy(MakerSigner())); }
    void ExpectNotListed(const std::string& name) const
    {
        const CatalogVerdict verdict = Check();
        EXPECT_EQ(verdict.state, CatalogState::FileNotListed);
        EXPECT_EQ(verdict.notListed, std::vector<std::string>{name});
        EXPECT_EQ(verdict.reason, "does not list " + name + " as it is");
        EXPECT_EQ(verdict.signer, "");
        EXPECT_EQ(verdict.signerScore, servicing::score::without_signature);
    }

    static constexpr char kInf[] = "the INF of a card";
    static constexpr char kTable[] = "a table of a card";
    fs::path folder_;
    SampleImage driver_{samples::kAmd64, "the driver of a card"};
    SampleCatalog catalog_;
};

constexpr SampleCatalog::Members kAllKinds[] = {
    SampleCatalog::Members::Both, SampleCatalog::Members::Sha1, SampleCatalog::Members::Sha256,
    SampleCatalog::Members::FirstGeneration};

// --- members ---------------------------------------------------------------------------------------

TEST_F(Catalogs, OfEveryGenerationListTheirFiles)
{
    for (const auto kind : kAllKinds) {
        catalog_.members = kind;
        const CatalogVerdict verdict = Check();
        EXPECT_EQ(verdict.state, CatalogState::Signed) << verdict.reason;
        EXPECT_EQ(verdict.reason, "");
    }
}

TEST_F(Catalogs, AMemberWithAnotherHash)
{
    for (const auto kind : kAllKinds)
        for (auto& file : catalog_.files) {
            SCOPED_TRACE(file.name + " in kind " + std::to_string(static_cast<int>(kind)));
            catalog_.members = kind;
            const auto good = file;
            file.sha1[19] = static_cast<char>(file.sha1[19] ^ 1);
            file.sha256[31] = static_cast<char>(file.sha256[31] ^ 1);
            ExpectNotListed(file.name);
            file = good;
        }
}

// The weaker hash does not make up for the stronger.
TEST_F(Catalogs, AMemberWhoseSha256AloneIsAnother)
{
    catalog_.files[1].sha256[0] = static_cast<char>(catalog_.files[1].sha256[0] ^ 1);
    ExpectNotListed("card.sys");
}

TEST_F(Catalogs, AFileThatIsNotListed)
{
    catalog_.files.pop_back();
    ExpectNotListed("card.bin");
}

TEST_F(Catalogs, ForAnotherInf)
{
    WriteFile(folder_ / "card.inf", "the INF of another card");
    ExpectNotListed("card.inf");
}

// The bytes of the right hash are in the list, and no member is made of them.
TEST_F(Catalogs, AMemberThatContradictsItself)
{
    catalog_.members = SampleCatalog::Members::Sha256;
    catalog_.wrongInside = true;
    const CatalogVerdict verdict = Check();
    EXPECT_EQ(verdict.state, CatalogState::FileNotListed);
    EXPECT_EQ(verdict.notListed.size(), 3u);
}

TEST_F(Catalogs, HashesOfPagesAreNoHindrance)
{
    catalog_.pageHashes = true;
    EXPECT_EQ(Check().state, CatalogState::Signed);
}

// --- images ----------------------------------------------------------------------------------------

TEST_F(Catalogs, ChecksumAndCertificatesOfAnImageDoNotCount)
{
    SampleImage same = driver_;
    same.SetChecksum("\x12\x34\x56\x78");
    WriteFile(folder_ / "card.sys", same.Bytes());
    EXPECT_EQ(Check().state, CatalogState::Signed);
    same.Sign(RootSigner());
    WriteFile(folder_ / "card.sys", same.Bytes());
    EXPECT_EQ(Check().state, CatalogState::Signed);
    WriteFile(folder_ / "card.sys", same.Bytes() + "more");
    ExpectNotListed("card.sys");
}

TEST_F(Catalogs, AnImageWithoutPadding)
{
    for (const auto machine : {samples::kAmd64, samples::kX86}) {
        SampleImage image(machine, "unpadded", "12345");
        ASSERT_NE(image.Bytes().size() % 8, 0u);
        catalog_.files[1] = Listing("card.sys", image);
        WriteFile(folder_ / "card.sys", image.Bytes());
        EXPECT_EQ(Check().state, CatalogState::Signed);
        image.Sign(MakerSigner());
        WriteFile(folder_ / "card.sys", image.Bytes());
        EXPECT_EQ(Check().state, CatalogState::Signed);
    }
}

// What a file is follows from its content, and its member has to say the same.
TEST_F(Catalogs, AnImageThatIsListedAsAPlainFile)
{
    catalog_.files[1] = Listing("card.sys", driver_.Bytes());
    ExpectNotListed("card.sys");
    catalog_.files[1] = Listing("card.sys", driver_);
    catalog_.files[1].isImage = false;
    ExpectNotListed("card.sys");
}

TEST_F(Catalogs, ImagesThatAreCutShort)
{
    const std::string whole = driver_.Bytes();
    for (const std::size_t size :
         {0, 1, 2, 0x3F, 0x40, 0x80, 0x84, 0x98, 0xD8, 0xDC, 0x130, 0x200}) {
        WriteFile(folder_ / "card.sys", whole.substr(0, size));
        ExpectNotListed("card.sys");
    }
    // Certificates that lie nowhere.
    std::string nowhere = whole;
    nowhere[0x80 + 24 + 112 + 32] = '\x10';
    nowhere[0x80 + 24 + 112 + 36 + 3] = '\x7F';
    WriteFile(folder_ / "card.sys", nowhere);
    ExpectNotListed("card.sys");
    EXPECT_FALSE(servicing::CarriesSignature(folder_ / "card.sys"));
}

TEST_F(Catalogs, ASignatureInsideAnImage)
{
    const auto carries = [&](const std::string& bytes) {
        WriteFile(folder_ / "card.sys", bytes);
        return servicing::CarriesSignature(folder_ / "card.sys");
    };
    EXPECT_FALSE(carries(driver_.Bytes()));
    EXPECT_FALSE(carries(kTable));
    driver_.Sign(MakerSigner());
    std::string bytes = driver_.Bytes();
    EXPECT_TRUE(carries(bytes));
    bytes[0x210] = static_cast<char>(bytes[0x210] ^ 1); // in its section
    EXPECT_FALSE(carries(bytes));
    EXPECT_FALSE(carries(driver_.Bytes().substr(0, bytes.size() - 1)));
}

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
    const auto stamped = [&](const char* time) {
        return expired.SignAt(samples::kTrustList, catalog_.List(), clock, time);
    };
    EXPECT_EQ(Check(stamped("20200701000000Z")).state, CatalogState::Signed);
    EXPECT_EQ(Check(stamped("20220701000000Z")).state, CatalogState::NotTrusted);
    // A stamp that was made over another signature.
    std::string foreign = stamped("20200701000000Z");
    foreign.replace(foreign.rfind("200701000000Z"), 13, "200702000000Z");
    EXPECT_EQ(Check(foreign).state, CatalogState::NotTrusted);
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

// --- whole packages --------------------------------------------------------------------------------

TEST(SamplePackages, EveryCatalogListsItsPackage)
{
    const fs::path folder = KESTRO_SAMPLES;
    const auto check = [&](const char* catalog, const std::vector<std::string>& names) {
        std::vector<PackageFile> files;
        for (const auto& name : names)
            files.push_back({folder / name, name});
        return servicing::CheckCatalog(folder / catalog, files).state;
    };
    EXPECT_EQ(check("kestrohid.cat", {"kestrohid.inf", "amd64/kestrohid.sys", "x86/kestrohid.sys"}),
              CatalogState::Signed);
    EXPECT_EQ(check("kestroserial.cat", {"kestrobus.inf", "amd64/kestrobus.sys"}),
              CatalogState::Signed);
    EXPECT_EQ(check("kestroserial.cat", {"kestroport.inf", "x86/kestroport.sys"}),
              CatalogState::Signed);
    EXPECT_EQ(check("kestrostor.cat", {"kestrostor.inf", "arm64/kestrostor.sys"}),
              CatalogState::Signed);
    EXPECT_EQ(check("KestroDisplay.cat", {"kestrodisplay.inf", "firmware/kestrodisplay.bin"}),
              CatalogState::Signed);
    EXPECT_EQ(check("health_driver.cat", {"kestrohealth.inf", "amd64/kestrocoinst.dll"}),
              CatalogState::Signed);
    EXPECT_EQ(check("kestrohid.cat", {"kestrohid.inf", "amd64/kestrobus.sys"}),
              CatalogState::FileNotListed);
    EXPECT_TRUE(servicing::CarriesSignature(folder / "amd64/kestrostor.sys"));
}

class PublishedCatalogs : public testing::Test {
  protected:
    void SetUp() override
    {
        if (!fs::is_directory(folder_))
            GTEST_SKIP() << "skipped: there are no published packages in " << folder_;
    }
    CatalogVerdict Check(const fs::path& catalog, const std::string& inf) const
    {
        return servicing::CheckCatalog(catalog, {{folder_ / inf, inf}});
    }
    const fs::path folder_ = KESTRO_PUBLISHED "/drivers/tidepool";
};

TEST_F(PublishedCatalogs, AreSignedForTheirInfs)
{
    for (const auto& [inf, catalog] :
         std::map<std::string, std::string>{{"ftdibus.inf", "ftdibus.cat"},
                                            {"ftdiport.inf", "ftdiport.cat"},
                                            {"phdc.inf", "phdc_driver.cat"},
                                            {"tidepoolhid.inf", "tidepoolhid.cat"},
                                            {"tidepoolvcp.inf", "tidepoolvcp.cat"}}) {
        const CatalogVerdict verdict = Check(folder_ / catalog, inf);
        EXPECT_EQ(verdict.state, CatalogState::Signed) << inf << verdict.reason;
        EXPECT_EQ(verdict.signer, "Microsoft Windows Hardware Compatibility Publisher") << inf;
        EXPECT_EQ(verdict.signerScore, servicing::score::whql) << inf;
        EXPECT_EQ(verdict.attributes, 0x80000002u) << inf;
        EXPECT_EQ(verdict.submissionId, "61305200_14038729103736281_1152921505698318380") << inf;
    }
    EXPECT_EQ(Check(folder_ / "ftdibus.cat", "phdc.inf").state, CatalogState::FileNotListed);
}

TEST_F(PublishedCatalogs, AreNotSignedOnceTheyAreChanged)
{
    const std::string good = ReadFile(folder_ / "ftdibus.cat");
    std::string pattern = fs::temp_directory_path() / "kestro-catalog-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    for (std::size_t at = 60; at < 1000; at += 97) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 1);
        WriteFile(fs::path(pattern) / "bad.cat", bad);
        EXPECT_NE(Check(fs::path(pattern) / "bad.cat", "ftdibus.inf").state, CatalogState::Signed)
            << at;
    }
    fs::remove_all(pattern);
}

} // namespace
} // namespace kestro::test
