// servicing_test.cpp - the companion's own way to the servicing API, on the embedded one.
#include "kestro.hpp"

#include <gtest/gtest.h>

using WINBOOL = BOOL;

#include <dismapi.h>

#include <filesystem>

namespace kestro {
namespace {

namespace fs = std::filesystem;

// The records are declared anew; the system's own declarations say where each field lies.
#define SAME_PLACE(ours, our, theirs, their)                                                       \
    static_assert(offsetof(detail::ours, our) == offsetof(theirs, their))
static_assert(sizeof(detail::PackageRecord) == sizeof(DismDriverPackage));
SAME_PLACE(PackageRecord, bootCritical, DismDriverPackage, BootCritical);
SAME_PLACE(PackageRecord, provider, DismDriverPackage, ProviderName);
SAME_PLACE(PackageRecord, version, DismDriverPackage, MajorVersion);
static_assert(sizeof(detail::DeviceRecord) == sizeof(DismDriver));
SAME_PLACE(DeviceRecord, service, DismDriver, ServiceName);
static_assert(sizeof(detail::ImageRecord) == sizeof(DismImageInfo));
SAME_PLACE(ImageRecord, size, DismImageInfo, ImageSize);
SAME_PLACE(ImageRecord, architecture, DismImageInfo, Architecture);
SAME_PLACE(ImageRecord, edition, DismImageInfo, EditionId);
SAME_PLACE(ImageRecord, productSuite, DismImageInfo, ProductSuite);
SAME_PLACE(ImageRecord, version, DismImageInfo, MajorVersion);
SAME_PLACE(ImageRecord, servicePack, DismImageInfo, SpLevel);
SAME_PLACE(ImageRecord, bootable, DismImageInfo, Bootable);
SAME_PLACE(ImageRecord, languages, DismImageInfo, Language);
SAME_PLACE(ImageRecord, files, DismImageInfo, CustomizedInfo);
static_assert(sizeof(detail::FilesRecord) == sizeof(DismWimCustomizedInfo));
SAME_PLACE(FilesRecord, modified, DismWimCustomizedInfo, ModifiedTime);
static_assert(sizeof(detail::MountRecord) == sizeof(DismMountedImageInfo));
SAME_PLACE(MountRecord, mode, DismMountedImageInfo, MountMode);
SAME_PLACE(MountRecord, status, DismMountedImageInfo, MountStatus);
#undef SAME_PLACE

class ServicingItself : public testing::Test {
  protected:
    void SetUp() override
    {
        folder_ = fs::temp_directory_path() /
                  (L"kestro-servicing-" + std::to_wstring(GetCurrentProcessId()));
        fs::create_directories(folder_ / L"image/Windows/INF");
        fs::copy(KESTRO_SAMPLES, folder_ / L"package", fs::copy_options::recursive);
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::wstring Log() const { return folder_ / L"dism.log"; }
    std::wstring Image() const { return folder_ / L"image"; }
    std::wstring Inf() const { return folder_ / L"package/kestrohid.inf"; }

    fs::path folder_;
};

void ExpectDetails(const PackageDetails& package)
{
    EXPECT_EQ(package.className, "HIDClass");
    EXPECT_EQ(package.version, "1.3.0.0");
    EXPECT_EQ(package.date, "2016-04-21");
    EXPECT_EQ(package.signature, PackageDetails::Signature::Signed);
}

TEST_F(ServicingItself, TellsOfAPackage)
{
    const Servicing servicing(Log());
    const ServicingSession session(servicing, Image());
    const DriverDetails outside = session.Driver(Inf());
    ExpectDetails(outside.package);
    ASSERT_FALSE(outside.devices.empty());
    EXPECT_TRUE(outside.devices[0].hardwareId.starts_with("USB\\VID_"));

    EXPECT_TRUE(session.Packages(false).empty());
    session.Add(Inf());
    const std::vector<PackageDetails> packages = session.Packages(false);
    ASSERT_EQ(packages.size(), 1u);
    EXPECT_EQ(packages[0].publishedName, "oem0.inf");
    ExpectDetails(packages[0]);
}

TEST_F(ServicingItself, ClosesWhatItOpens)
{
    {
        const Servicing servicing(Log());
        const ServicingSession session(servicing, Image());
        EXPECT_THROW(session.Driver(L"oem7.inf"), ServicingError);
        EXPECT_THROW(ServicingSession(servicing, folder_ / L"none"), ServicingError);
    }
    // The API starts anew only when the last session is closed.
    EXPECT_NO_THROW(Servicing{Log()}.Mounts());
}

TEST_F(ServicingItself, AFailureNamesItsFunctionAndCode)
{
    const Servicing servicing(Log());
    try {
        servicing.Images(folder_ / L"none.wim");
        FAIL();
    } catch (const ServicingError& error) {
        EXPECT_EQ(error.Function(), "DismGetImageInfo");
        EXPECT_EQ(static_cast<std::uint32_t>(error.Code()), 0x80070002u);
        EXPECT_NE(std::string(error.what()).find("none.wim"), std::string::npos);
    }
}

} // namespace
} // namespace kestro
