// catalog_test.cpp - what a catalog says of a package's files: members, hashes, images, whole packages.
#include "authenticode.h"
#include "catalog_case.h"

namespace kestro::test {
namespace {

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
