// catalog_case.h - what the tests of catalogs share.
#pragma once

#include "catalog.h"
#include "files.h"
#include "sample_catalog.h"
#include "sample_image.h"

#include <gtest/gtest.h>

namespace kestro::test {

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

} // namespace kestro::test
