// inf_package_test.cpp - what the driver store takes out of an INF as a whole.
#include "inf_case.h"

namespace kestro::test {
namespace {

using Texts = std::vector<std::string>;

Texts Paths(const servicing::DriverPackage& package)
{
    Texts paths;
    for (const auto& file : package.files)
        paths.push_back(file.Path());
    return paths;
}

TEST(InfPackage, VersionSection)
{
    const std::string text = R"([VERSION]
CLASS=Net
ClassGuid={4d36e972-e325-11ce-bfc1-08002be10318}
Provider=%Maker%
DriverVer=2/9/2024, 10.0.19041.65535
CatalogFile=any.cat
CatalogFile.NTamd64=Amd64.cat
PnpLockdown=1
ExtensionId={f0000000-0000-4000-8000-000000000001}
[Strings]
Maker="Kestro Samples"
)";
    const auto package = Read(text);
    EXPECT_EQ(package.className, "Net");
    EXPECT_EQ(package.provider, "Kestro Samples");
    EXPECT_EQ(package.date.year, 2024);
    EXPECT_EQ(package.date.month, 2);
    EXPECT_EQ(package.date.day, 9);
    EXPECT_EQ(package.version, (std::array<std::uint16_t, 4>{10, 0, 19041, 65535}));
    EXPECT_EQ(package.catalog, "Amd64.cat");
    EXPECT_EQ(Read(text, Windows(10, 0, 19041, Architecture::X86)).catalog, "any.cat");
    EXPECT_EQ(Read("[Version]\nCatalogFile.NT=nt.cat\nCatalogFile=any.cat\n").catalog, "nt.cat");
    EXPECT_TRUE(package.pnpLockdown);
    EXPECT_EQ(package.extensionId, "{f0000000-0000-4000-8000-000000000001}");
    EXPECT_FALSE(package.applies);
    EXPECT_FALSE(Read("").pnpLockdown);
}

TEST(InfPackage, ADateThatIsNone)
{
    for (const char* date : {"13/01/2024", "2024-01-01", "", "1/1/24x"}) {
        const auto package = Read(std::string("[Version]\nDriverVer=") + date + ",1.2\n");
        EXPECT_EQ(package.date.year, 0) << date;
        EXPECT_EQ(package.version, (std::array<std::uint16_t, 4>{1, 2, 0, 0})) << date;
    }
}

constexpr char kModels[] = R"([Manufacturer]
%Vendor%=First,NTamd64
"Plain Maker"=Second,NTamd64
[First.NTamd64]
%Card.Desc%=Card,PCI\A,PCI\B,,PCI\C
"A %VENDOR% card"=card,PCI\D
[Second.NTamd64]
No token=Other,USB\E
[Card.NTamd64]
FeatureScore=40
[Card.NTamd64.Services]
AddService=ksfilter,,Service
AddService=kscard,2,Service
[Other]
[Other.Services]
AddService=ksother,,Service
[ControlFlags]
ExcludeFromSelect=*
ExcludeFromSelect=PCI\B,PCI\D
[Strings]
VENDOR=Kestro Samples
Card.desc=Sample card
Unused=nothing
)";

TEST(InfPackage, Models)
{
    const auto models = Read(kModels).models;
    ASSERT_EQ(models.size(), 3u);
    EXPECT_EQ(models[0].architecture, "amd64");
    EXPECT_EQ(models[0].manufacturer, "Kestro Samples");
    EXPECT_EQ(models[0].description, "Sample card");
    EXPECT_EQ(models[0].manufacturerToken, "%vendor%");
    EXPECT_EQ(models[0].descriptionToken, "%card.desc%");
    EXPECT_EQ(models[0].hardwareId, "PCI\\A");
    EXPECT_EQ(models[0].compatibleIds, (Texts{"PCI\\B", "PCI\\C"}));
    EXPECT_EQ(models[0].installSection, "Card.NTamd64");
    EXPECT_EQ(models[0].service, "kscard");
    EXPECT_EQ(models[0].featureScore, 0x40);
    EXPECT_EQ(models[1].descriptionToken, "A %vendor% card");
    EXPECT_EQ(models[2].manufacturerToken, "Plain Maker");
    EXPECT_EQ(models[2].descriptionToken, "No token");
    EXPECT_EQ(models[2].service, "ksother");
    EXPECT_EQ(models[2].featureScore, 0xFF);
}

TEST(InfPackage, WhatTheModelsHaveInCommon)
{
    const auto package = Read(kModels);
    ASSERT_EQ(package.configurations.size(), 2u);
    EXPECT_EQ(package.configurations[0].section, "Card.NTamd64");
    EXPECT_EQ(package.configurations[1].section, "Other");
    EXPECT_EQ(package.configurations[1].service, "");
    EXPECT_EQ(package.modelStrings,
              (std::map<std::string, std::string>{{"vendor", "Kestro Samples"},
                                                  {"card.desc", "Sample card"}}));
    EXPECT_EQ(package.excludedIds, (Texts{"PCI\\B", "PCI\\D"}));
}

TEST(InfPackage, DevicesForOthersAreShownAndNotInstalled)
{
    const auto package = Read(kModels, Windows(10, 0, 19041, Architecture::Arm64));
    EXPECT_EQ(package.fit, Fit::OtherArchitecture);
    ASSERT_EQ(package.models.size(), 3u);
    EXPECT_EQ(package.models[0].installSection, "Card.NTamd64");
    EXPECT_EQ(package.models[0].service, "kscard");
    EXPECT_TRUE(package.configurations.empty());
}

TEST(InfPackage, FilesAndTheirFolders)
{
    const std::string text = R"([SourceDisksNames]
1=Disk,,,\common
[SourceDisksNames.amd64]
2=Disk,,,".\x64\"
[SourceDisksFiles]
a.sys=1,sub
b.sys=1
c.sys=9
[SourceDisksFiles.amd64]
A.SYS=2
d.dll=2,deep\er
)";
    EXPECT_EQ(Paths(Read(text)),
              (Texts{"x64/A.SYS", "x64/deep/er/d.dll", "common/b.sys", "c.sys"}));
    EXPECT_EQ(Paths(Read(text, Windows(10, 0, 19041, Architecture::X86))),
              (Texts{"common/sub/a.sys", "common/b.sys", "c.sys"}));
}

TEST(InfPackage, AFileThatIsListedWithoutItsDisk)
{
    EXPECT_EQ(Paths(Read("[SourceDisksFiles]\na.sys\n")), Texts{"a.sys"});
}

TEST(InfPackage, FilesInACabinet)
{
    EXPECT_EQ(Paths(Read("[SourceDisksNames]\n1=Disk,all.cab,,x64\n[SourceDisksFiles]\na.sys=1\n")),
              Texts{"x64/all.cab"});
}

std::string Copying(const std::string& layout)
{
    return "[Version]\nLayoutFile=" + layout +
           "\n[Manufacturer]\nM=Models,NTamd64\n[Models.NTamd64]\nA=Install,<a>\n"
           "[Install]\nCopyFiles=Files,@direct.dll\n[Files]\ninstalled.sys,source.sys\nplain.sys\n"
           "[Install.CoInstallers]\nCopyFiles=@helper.dll\n"
           "[ClassInstall32]\nCopyFiles=@class.dll,@PLAIN.sys\n";
}

TEST(InfPackage, FilesThatAreCopiedWithoutBeingListed)
{
    EXPECT_EQ(Paths(Read(Copying(""))),
              (Texts{"source.sys", "plain.sys", "direct.dll", "helper.dll", "class.dll"}));
    EXPECT_EQ(Paths(Read(Copying("layout.inf"))), Texts());
}

TEST(InfPackage, ANewClass)
{
    const auto package = Read("[Version]\nClass=Health\n[ClassInstall32]\nAddReg=Class\n[Class]\n"
                              "HKR,,Icon,,-20\nHKR,,,0,%Name%\n[Strings]\nName=Health devices\n");
    EXPECT_EQ(package.classDescription, "Health devices");
    ASSERT_EQ(package.classSettings.size(), 2u);
    EXPECT_EQ(package.classSettings[0].name, "Icon");
    EXPECT_EQ(Read("[Version]\nClass=Net\n").classDescription, "Net");
}

TEST(InfPackage, WhatTheBootNeeds)
{
    const auto critical = [](const char* guid, const ImageWindows& windows) {
        return Read(std::string("[Version]\nClassGuid=") + guid + "\n", windows).bootCritical;
    };
    const char* const controller = "{4D36E97B-E325-11CE-BFC1-08002BE10318}";
    const char* const net = "{4d36e972-e325-11ce-bfc1-08002be10318}";
    // Without classes in the image a list decides.
    EXPECT_TRUE(critical(controller, kWindows10));
    EXPECT_FALSE(critical(net, kWindows10));

    ImageWindows windows = kWindows10;
    windows.classes = {
        {"{4d36e97b-e325-11ce-bfc1-08002be10318}", ImageWindows::BootCritical::No},
        {net, ImageWindows::BootCritical::Yes},
        {"{4d36e97d-e325-11ce-bfc1-08002be10318}", ImageWindows::BootCritical::Unset}};
    EXPECT_FALSE(critical(controller, windows));
    EXPECT_TRUE(critical(net, windows));
    EXPECT_TRUE(critical("{4d36e97d-e325-11ce-bfc1-08002be10318}", windows));
    // A class that the image does not know, though the list does.
    EXPECT_FALSE(critical("{4d36e967-e325-11ce-bfc1-08002be10318}", windows));
}

} // namespace
} // namespace kestro::test
