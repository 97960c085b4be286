// inf_install_test.cpp - what the install sections of an INF do: services, settings, files.
#include "inf_case.h"

#include "files.h"
#include "refusal.h"
#include "text_encoding.h"

#include <cstdlib>

namespace kestro::test {
namespace {

using Action = servicing::RegistrySetting::Action;
using servicing::DirectoryPath;
using servicing::Utf16Of;
using Texts = std::vector<std::string>;

std::string Wide(const std::string& text)
{
    return Utf16Of(text) + std::string(2, '\0');
}

std::vector<servicing::RegistrySetting> Settings(const std::string& lines)
{
    return Installed("[Install.HW]\nAddReg=Settings\n[Settings]\n" + lines).deviceSettings;
}

// The type and the data of one line.
std::pair<std::uint32_t, std::string> Value(const std::string& flagsAndData)
{
    const auto settings = Settings("HKR,Key,Name," + flagsAndData);
    EXPECT_EQ(settings.size(), 1u);
    EXPECT_EQ(settings.at(0).action, Action::Set);
    return {settings[0].type, settings[0].data};
}

using Data = std::pair<std::uint32_t, std::string>;

TEST(InfSettings, EachType)
{
    EXPECT_EQ(Value(",text"), Data(1, Wide("text")));
    EXPECT_EQ(Value("0x00000000,\"a, b\""), Data(1, Wide("a, b")));
    EXPECT_EQ(Value("0x00020000,%%SystemRoot%%\\a.dll"), Data(2, Wide("%SystemRoot%\\a.dll")));
    EXPECT_EQ(Value("0x00000001,01,fe,0x0A"), Data(3, "\x01\xFE\x0A"));
    EXPECT_EQ(Value("0x00010001,0x12345678"), Data(4, "\x78\x56\x34\x12"));
    EXPECT_EQ(Value("65537,10"), Data(4, std::string("\x0A\0\0\0", 4)));
    EXPECT_EQ(Value("0x10001,-1"), Data(4, "\xFF\xFF\xFF\xFF"));
    EXPECT_EQ(Value("0x10001,04,03,02,01"), Data(4, "\x04\x03\x02\x01"));
    EXPECT_EQ(Value("0x10001"), Data(4, std::string(4, '\0')));
    EXPECT_EQ(Value("0x00010000,one,\"two, three\""),
              Data(7, Wide("one") + Wide("two, three") + std::string(2, '\0')));
    EXPECT_EQ(Value("0x00010000"), Data(7, std::string(2, '\0')));
    EXPECT_EQ(Value("0x00020001"), Data(0, ""));
    EXPECT_EQ(Value("0x000B0001,0x123456789"),
              Data(11, std::string("\x89\x67\x45\x23\1\0\0\0", 8)));
    EXPECT_EQ(Value("0x000B0001,01,02,03,04,05,06,07,08"), Data(11, "\1\2\3\4\5\6\7\x08"));
    EXPECT_EQ(Value("0x00380001,1,2"), Data(0x38, "\1\2"));
}

TEST(InfSettings, EachFlag)
{
    const auto action = [](const std::string& line) { return Settings(line).at(0).action; };
    EXPECT_EQ(action("HKR,Key,Name,0x2,a"), Action::SetIfAbsent);
    EXPECT_EQ(action("HKR,Key,Name,0x20,a"), Action::SetIfThere);
    EXPECT_EQ(action("HKR,Key,Name,0x00010008,a"), Action::Append);
    EXPECT_EQ(action("HKR,Key,Name,0x8,a"), Action::Set);
    EXPECT_EQ(action("HKR,Key,Name,0x4"), Action::DeleteValue);
    EXPECT_EQ(action("HKR,Key,,0x4"), Action::DeleteKey);
    EXPECT_EQ(action("HKR,Key,Name,0x2004"), Action::DeleteKey);
    EXPECT_EQ(action("HKR,Key,,0x10"), Action::MakeKey);
    EXPECT_EQ(action("HKR,Key,Name,0x2000,a"), Action::MakeKey);
    EXPECT_EQ(action("HKR,Key"), Action::MakeKey);
    EXPECT_EQ(Settings("HKR,Key,Name,0x00010008,a").at(0).type, 7u);
}

TEST(InfSettings, WhereTheyGo)
{
    const auto settings = Settings("HKR,,Name,,a\n"
                                   "hklm,\"\\Software\\\\Kestro Samples\\\",,,a\n"
                                   "NOROOT,Key,Name,,a\n"
                                   "HKR,,,0x4\n");
    ASSERT_EQ(settings.size(), 2u);
    EXPECT_EQ(settings[0].root, "HKR");
    EXPECT_EQ(settings[0].key, "");
    EXPECT_EQ(settings[0].name, "Name");
    EXPECT_EQ(settings[1].root, "HKLM");
    EXPECT_EQ(settings[1].key, "Software\\Kestro Samples");
    EXPECT_EQ(settings[1].name, "");
}

TEST(InfSettings, DeletionsComeFirst)
{
    const auto settings = Installed("[Install.HW]\nAddReg=Add\nDelReg=Delete\n"
                                    "[Add]\nHKR,Key,Name,,a\n[Delete]\nHKR,Key,Old\nHKR,Gone\n")
                              .deviceSettings;
    ASSERT_EQ(settings.size(), 3u);
    EXPECT_EQ(settings[0].action, Action::DeleteValue);
    EXPECT_EQ(settings[0].name, "Old");
    EXPECT_EQ(settings[1].action, Action::DeleteKey);
    EXPECT_EQ(settings[2].action, Action::Set);
}

TEST(InfServices, EverythingOfAService)
{
    const auto found = Installed(R"(
[Install.Services]
AddService=kssample,%Own%,Driver,Log
AddService=kshelper,,Helper,Log,Application,Kestro Log
[Driver]
DisplayName=%Svc.Name%
Description="Plain %Maker% text"
ServiceType=1
StartType=0x0
ErrorControl=%Critical%
ServiceBinary=%12%\kssample.sys
LoadOrderGroup="SCSI miniport"
Dependencies=+PNP Group,pci,"+Other"
AddReg=DriverSettings
[DriverSettings]
HKR,Parameters,BusType,0x00010001,10
[Helper]
ServiceType=0x10
StartType=2
ErrorControl=1
ServiceBinary="%11%\kshelper.exe -k sample"
StartName=LocalSystem
[Log]
AddReg=LogSettings
[LogSettings]
HKR,,TypesSupported,0x00010001,7
[Strings]
Own=0x00000002
Svc.Name=Sample driver
Maker=Kestro
Critical=3
)");
    EXPECT_EQ(found.service, "kssample");
    ASSERT_EQ(found.services.size(), 2u);
    const auto& driver = found.services[0];
    EXPECT_EQ(driver.flags, 2u);
    EXPECT_EQ(driver.displayName.written, "%Svc.Name%");
    EXPECT_EQ(driver.displayName.meaning, "Sample driver");
    EXPECT_TRUE(driver.displayName.IsToken());
    EXPECT_EQ(driver.description.meaning, "Plain Kestro text");
    EXPECT_FALSE(driver.description.IsToken());
    EXPECT_EQ(driver.type, 1u);
    EXPECT_EQ(driver.start, 0u);
    EXPECT_EQ(driver.errorControl, 3u);
    EXPECT_EQ(driver.binary.directory, 12u);
    EXPECT_EQ(driver.binary.path, "kssample.sys");
    EXPECT_EQ(driver.loadOrderGroup, "SCSI miniport");
    EXPECT_EQ(driver.dependsOnServices, Texts{"pci"});
    EXPECT_EQ(driver.dependsOnGroups, (Texts{"PNP Group", "Other"}));
    ASSERT_EQ(driver.settings.size(), 1u);
    EXPECT_EQ(driver.settings[0].key, "Parameters");
    ASSERT_EQ(driver.eventLogs.size(), 1u);
    EXPECT_EQ(driver.eventLogs[0].type, "System");
    EXPECT_EQ(driver.eventLogs[0].name, "kssample");
    EXPECT_EQ(driver.eventLogs[0].settings.at(0).name, "TypesSupported");

    const auto& helper = found.services[1];
    EXPECT_EQ(helper.type, 0x10u);
    EXPECT_EQ(helper.start, 2u);
    EXPECT_EQ(helper.binary.directory, 11u);
    EXPECT_EQ(helper.binary.path, "kshelper.exe -k sample");
    EXPECT_EQ(helper.startName, "LocalSystem");
    EXPECT_EQ(helper.displayName.meaning, "");
    EXPECT_EQ(helper.eventLogs.at(0).type, "Application");
    EXPECT_EQ(helper.eventLogs.at(0).name, "Kestro Log");
}

TEST(InfServices, ValuesThatAreDirectives)
{
    const auto service = Installed("[Install.Services]\nAddService=kssample,2,Driver\n[Driver]\n"
                                   "bootflags=0x14\nServiceSidType=1\nDelayedAutoStart=1\n"
                                   "RequiredPrivileges=SeAuditPrivilege,SeBackupPrivilege\n")
                             .services.at(0);
    std::string names;
    for (const auto& directive : service.directives) {
        const auto& setting = directive.settings.at(0);
        EXPECT_EQ(setting.root + setting.key, "HKR");
        names += setting.name + " " + std::to_string(directive.firstBuild) + " ";
    }
    EXPECT_EQ(names,
              "BootFlags 25381 ServiceSidType 19041 DelayedAutostart 19041 RequiredPrivileges 0 ");
    EXPECT_EQ(service.directives[0].settings[0].data, std::string("\x14\0\0\0", 4));
    const auto& privileges = service.directives[3].settings[0];
    EXPECT_EQ(privileges.type, 7u);
    EXPECT_EQ(privileges.data,
              Wide("SeAuditPrivilege") + Wide("SeBackupPrivilege") + std::string(2, '\0'));
    EXPECT_TRUE(service.settings.empty());
}

TEST(InfServices, NamesThatAreMoreThanAToken)
{
    const auto name = [](const std::string& written) {
        return Installed("[Install.Services]\nAddService=a,2,S\n[S]\nDisplayName=" + written +
                         "\n[Strings]\na=one\nb=two\n")
            .services.at(0)
            .displayName;
    };
    EXPECT_TRUE(name("%a%").IsToken());
    EXPECT_FALSE(name("%a% %b%").IsToken());
    EXPECT_EQ(name("%a% %b%").meaning, "one two");
    EXPECT_FALSE(name("%none%").IsToken());
    EXPECT_FALSE(name("plain").IsToken());
}

TEST(InfServices, ADeviceWithoutAServiceOfItsOwn)
{
    const auto found =
        Installed("[Install.Services]\nAddService=,2\nAddService=ksfilter,,Filter\n");
    EXPECT_EQ(found.service, "");
    ASSERT_EQ(found.services.size(), 1u);
    EXPECT_EQ(found.services[0].name, "ksfilter");
}

TEST(InfServices, TheFrameworksVersion)
{
    const auto found = Installed("[Install.Wdf]\nKmdfService=kssample,Wdf\n"
                                 "[Wdf]\nKmdfLibraryVersion=1.15\n");
    EXPECT_TRUE(found.hasWdf);
    ASSERT_EQ(found.kmdfServices.size(), 1u);
    EXPECT_EQ(found.kmdfServices[0].service, "kssample");
    EXPECT_EQ(found.kmdfServices[0].libraryVersion, "1.15");
}

TEST(InfInstall, FeatureScores)
{
    const auto score = [](const std::string& line) { return Installed(line + "\n").featureScore; };
    EXPECT_EQ(score(""), 0xFF);
    EXPECT_EQ(score("FeatureScore=F9"), 0xF9);
    EXPECT_EQ(score("FeatureScore=0x40"), 0x40);
    EXPECT_EQ(score("FeatureScore=1FF"), 0xFF);
    EXPECT_EQ(score("FeatureScore=high"), 0xFF);
}

TEST(InfInstall, CoInstallers)
{
    const auto has = [](const std::string& dll) {
        return Installed(
                   "[Install.CoInstallers]\nAddReg=Co\n[Co]\n"
                   "HKR,,CoInstallers32,0x00010000,\"WdfCoInstaller01015.dll,WdfCoInstaller\"" +
                   dll + "\n")
            .hasCoInstaller;
    };
    EXPECT_FALSE(has(""));
    EXPECT_TRUE(has(",\"ksprops.dll,Entry\""));
    EXPECT_TRUE(Installed("[Install.CoInstallers]\nCopyFiles=@ksprops.dll\n").hasCoInstaller);
    EXPECT_FALSE(
        Installed("[Install.CoInstallers]\nCopyFiles=@WdfCoInstaller01015.dll\n").hasCoInstaller);
}

Texts Copies(const std::string& text)
{
    Texts copies;
    for (const auto& copy : Installed(text).copies)
        copies.push_back(copy.source.Path() + " > " + std::to_string(copy.destination.directory) +
                         ":" + copy.destination.path + ":" + copy.target);
    return copies;
}

TEST(InfCopies, WhereFilesGo)
{
    EXPECT_EQ(
        Copies(R"(CopyFiles=Drivers,"Dlls", Own.Place
CopyFiles=@single.inf
[Drivers]
kssample.sys,,,0x100
[Dlls]
kslib.dll,kslib_x64.dll,,2
[Own.Place]
a.txt
"b c.txt"
[DestinationDirs]
DefaultDestDir=10
drivers=12
Dlls=16425
Own.Place=16427,"\Kestro Samples\Sub\"
[SourceDisksNames]
1=Disk,,,x64
[SourceDisksFiles]
kslib_x64.dll=1
)"),
        (Texts{"kssample.sys > 12::kssample.sys", "x64/kslib_x64.dll > 16425::kslib.dll",
               "a.txt > 16427:Kestro Samples\\Sub:a.txt",
               "b c.txt > 16427:Kestro Samples\\Sub:b c.txt", "single.inf > 10::single.inf"}));
    EXPECT_EQ(Copies("CopyFiles=@a.sys\n"), Texts{"a.sys > 11::a.sys"});
    EXPECT_EQ(Copies("CopyFiles=A,Missing\n[A]\na.sys\n[DestinationDirs]\nA=13\n"),
              Texts{"a.sys > 13::a.sys"});
}

TEST(InfCopies, FlagsAndCoInstallers)
{
    const auto copies = Installed("CopyFiles=A\n[A]\na.sys,,,0x4002\n[Install.CoInstallers]\n"
                                  "CopyFiles=@b.dll\n")
                            .copies;
    ASSERT_EQ(copies.size(), 2u);
    EXPECT_EQ(copies[0].flags, 0x4002u);
    EXPECT_FALSE(copies[0].ofCoInstaller);
    EXPECT_TRUE(copies[1].ofCoInstaller);
}

class InfIncludes : public testing::Test {
  protected:
    void SetUp() override
    {
        std::string pattern = fs::temp_directory_path() / "kestro-includes-XXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
    }
    void TearDown() override { fs::remove_all(folder_); }

    void Write(const std::string& path, const std::string& text) const
    {
        WriteFile(folder_ / path, "[Version]\nSignature=$Windows NT$\n" + text);
    }
    servicing::Configuration Read(const std::string& text) const
    {
        Write("package/sample.inf", "[Manufacturer]\nKestro=Models,NTamd64\n"
                                    "[Models.NTamd64]\nSample=Install,ROOT\\SAMPLE\n" +
                                        text);
        servicing::InfLibrary library(folder_ / "image");
        return ReadPackage(InfFile::Open(folder_ / "package/sample.inf"), kWindows10, library)
            .configurations.at(0);
    }

    fs::path folder_;
};

TEST_F(InfIncludes, SectionsOfTheImagesInfs)
{
    Write("image/Windows/INF/ksbus.inf",
          "[Bus.NT]\nCopyFiles=BusFiles\n[BusFiles]\nksbus.sys\n[DestinationDirs]\nBusFiles=12\n"
          "[Bus.NT.Services]\nAddService=ksbus,2,BusService\n"
          "[BusService]\nDisplayName=%Name%\nServiceType=1\nStartType=3\nServiceBinary=%12%\\ksbus."
          "sys\n"
          "[Strings]\nName=Bus of the image\n");
    const auto found = Read("[Install.NT]\nInclude=KSBUS.INF\nNeeds=Bus.NT\nCopyFiles=@own.sys\n"
                            "[Install.NT.Services]\nNeeds=Bus.NT.Services\nInclude=ksbus.inf\n"
                            "[Strings]\nName=of the package\n");
    EXPECT_EQ(found.service, "ksbus");
    ASSERT_EQ(found.services.size(), 1u);
    EXPECT_EQ(found.services[0].inf, "ksbus.inf");
    EXPECT_EQ(found.services[0].displayName.meaning, "Bus of the image");
    ASSERT_EQ(found.copies.size(), 2u);
    EXPECT_EQ(found.copies[0].target, "ksbus.sys");
    EXPECT_EQ(found.copies[0].inf, "ksbus.inf");
    EXPECT_EQ(found.copies[0].destination.directory, 12u);
    EXPECT_EQ(found.copies[1].target, "own.sys");
    EXPECT_EQ(found.copies[1].inf, "");
}

TEST_F(InfIncludes, AnInfBesideThePackagesOwn)
{
    Write("package/KsShared.inf", "[Shared]\nFeatureScore=20\n[Hardware]\nHKR,,Name,,text\n");
    const auto found = Read("[Install]\nInclude=ksshared.inf\nNeeds=Shared\n"
                            "[Install.HW]\nInclude=ksshared.inf\nAddReg=Hardware\n");
    EXPECT_EQ(found.featureScore, 0x20);
    ASSERT_EQ(found.deviceSettings.size(), 1u);
}

TEST_F(InfIncludes, WhatCannotBeIncluded)
{
    WriteFile(folder_ / "outside.inf",
              "[Version]\nSignature=$Windows NT$\n[Shared]\nFeatureScore=1\n");
    WriteFile(folder_ / "package/none.inf", "no INF");
    for (const char* name :
         {"missing.inf", "..\\outside.inf", "../outside.inf", "none.inf", "none.txt"})
        EXPECT_EQ(Read(std::string("[Install]\nInclude=") + name + "\nNeeds=Shared\n").featureScore,
                  0xFF)
            << name;
}

TEST_F(InfIncludes, SectionsThatNeedEachOther)
{
    Write("package/ksloop.inf",
          "[There]\nInclude=ksloop.inf\nNeeds=Back,There\nCopyFiles=@there.sys\n");
    const auto found =
        Read("[Install]\nInclude=ksloop.inf\nNeeds=There,Install\nCopyFiles=@own.sys\n"
             "[Back]\nNeeds=Install,Back\n");
    EXPECT_EQ(found.copies.size(), 2u);
}

TEST(InfLimits, AnInfThatNamesItsSectionsOverAndOver)
{
    // Each install section copies the same long list.
    std::string text = "[Manufacturer]\nKestro=Models,NTamd64\n[Models.NTamd64]\n";
    std::string sections;
    for (int i = 0; i < 10'000; ++i) {
        text += "Sample=I" + std::to_string(i) + ",<id>\n";
        sections += "[I" + std::to_string(i) + "]\nCopyFiles=List\n";
    }
    text += sections + "[List]\n";
    for (int i = 0; i < 10'000; ++i)
        text += "file.sys\n";
    EXPECT_CODE(Read(text), 0x800F0003);
}

TEST(InfLimits, ALongChainOfNeeds)
{
    std::string text = "Needs=S0\n";
    for (int i = 0; i < 100'000; ++i)
        text += "[S" + std::to_string(i) + "]\nNeeds=S" + std::to_string(i + 1) + "\n";
    EXPECT_TRUE(Installed(text).copies.empty());
}

} // namespace
} // namespace kestro::test
