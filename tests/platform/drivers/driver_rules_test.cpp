// driver_rules_test.cpp - from an INF to the hives and files, rule by rule, of a boot package of the maker
// "Kestro Samples".
#include "driver_case.h"
#include "driver_reflection.h"
#include "inf_package.h"

namespace kestro::test {
namespace {

class Rules : public DriverCase {
  protected:
    // Adds a package of these files, whose INF says this beside what all of them say.
    servicing::AddResult AddInf(const std::string& text,
                                const std::vector<std::string>& files = {"kssample.sys"})
    {
        const fs::path source = folder_ / "source/sample";
        for (const auto& file : files)
            WriteFile(source / file, "the content of " + file);
        WriteFile(source / "sample.inf",
                  std::string("[Version]\nSignature=\"$Windows NT$\"\nClass=SCSIAdapter\n"
                              "ClassGuid=") +
                      kScsiAdapter + "\nProvider=Kestro Samples\nDriverVer=02-29-2024\n" + text);
        servicing::DriverStore store(
            Root(), servicing::PlatformLog(folder_ / "log", servicing::LogLevel::Warning));
        const auto added =
            store.Add(servicing::PackageReader(Root()).Read(source / "sample.inf"), true);
        store.Save();
        return added;
    }
    // The same with one device, whose install section begins the text.
    servicing::AddResult AddDevice(const std::string& install,
                                   const std::vector<std::string>& files = {"kssample.sys"})
    {
        return AddInf("[Manufacturer]\nKestro Samples=Models,NTamd64\n[Models.NTamd64]\n"
                      "Sample=Install,ROOT\\SAMPLE\n[Install]\n" +
                          install,
                      files);
    }
    // A value below the key of the package, which is the only one.
    std::string OfPackage(const servicing::AddResult& added, const std::string& value) const
    {
        auto database = Database("SYSTEM");
        return database[servicing::LowerCase("DriverPackages\\" + added.folder.filename().string() +
                                             value)];
    }
    void SetBuild(unsigned build) const
    {
        MergeRegistry(Hive("SOFTWARE"), "[\\Microsoft\\Windows NT\\CurrentVersion]\n"
                                        "\"CurrentMajorVersionNumber\"=dword:0000000a\n"
                                        "\"CurrentMinorVersionNumber\"=dword:00000000\n"
                                        "\"CurrentBuildNumber\"=\"" +
                                            std::to_string(build) + "\"\n\n");
    }
    std::string Log() const { return ReadFile(folder_ / "log"); }
    bool IsLogged(const std::string& text) const { return Log().find(text) != std::string::npos; }
};

constexpr char kService[] = "[Install.Services]\nAddService=kssample,2,Service\n"
                            "[Service]\nServiceType=1\nStartType=3\nErrorControl=1\n"
                            "ServiceBinary=%12%\\kssample.sys\n";

TEST_F(Rules, ConfigurationsHaveTheCaseOfTheModels)
{
    const auto added = AddInf("[Manufacturer]\nKestro Samples=Models,NTAMD64\n[models.ntamd64]\n"
                              "Sample=Disk_Install,ROOT\\ONE\nSample=DISK_INSTALL,ROOT\\TWO\n"
                              "Other=Other_Install,ROOT\\THREE\n"
                              "[disk_install.NTAMD64]\n[other_install]\n");
    EXPECT_EQ(Database("SYSTEM")["driverinffiles\\oem0.inf  configurations"],
              "MSZ Disk_Install.NTamd64|Other_Install");
    EXPECT_EQ(OfPackage(added, "\\descriptors\\root\\two  configuration"),
              "SZ Disk_Install.NTamd64");
}

TEST_F(Rules, OfSeveralLinesThatNameAnIdTheBestCounts)
{
    const auto added =
        AddInf("[Manufacturer]\nKestro Samples=Models,NTamd64\n[Models.NTamd64]\n"
               "First=A,ROOT\\ONE,ROOT\\SHARED,ROOT\\OTHER\nSecond=B,ROOT\\SHARED,root\\one\n"
               "Third=C,ROOT\\ONE\n[A]\n[B]\nFeatureScore=40\n[C]\nFeatureScore=80\n");
    auto database = Database("SYSTEM");
    EXPECT_EQ(database["deviceids\\root\\one  oem0.inf"], "BIN 01800000");
    EXPECT_EQ(database["deviceids\\root\\shared  oem0.inf"], "BIN 01400000");
    EXPECT_EQ(database["deviceids\\root\\other  oem0.inf"], "BIN 02ff0000");
    EXPECT_EQ(OfPackage(added, "\\descriptors\\root\\one  description"), "SZ Third");
    EXPECT_EQ(OfPackage(added, "\\descriptors\\root\\shared  configuration"), "SZ B");
}

TEST_F(Rules, EachKindOfSetting)
{
    const auto added = AddDevice(std::string(kService) + R"(AddReg=Settings
[Install.HW]
AddReg=Settings
[Settings]
HKR,Made,,0x10
HKR,Texts,List,0x00010000,one,two
HKR,Texts,List,0x00010008,two
HKR,Texts,List,0x00010008,three
HKR,Kinds,Bytes,1,0a,0b
HKR,Kinds,Number,0x00010001,0x10
HKR,Kinds,Long,0x000B0001,0x10
HKR,Kinds,Path,0x00020000,"%%SystemRoot%%\a"
HKR,Kinds,Number,0x00010003,5
HKR,Kinds,None,0x00020001
)");
    for (const std::string& key :
         {std::string("\\configurations\\install\\device"),
          std::string("\\configurations\\install\\services\\kssample"), std::string()}) {
        SCOPED_TRACE(key);
        const auto value = [&](const std::string& name) {
            return key.empty() ? Service("kssample" + name.substr(0, name.find("  ")),
                                         name.substr(name.find("  ") + 2))
                               : OfPackage(added, key + name);
        };
        EXPECT_EQ(value("\\Texts  List"), "MSZ one|two|three");
        EXPECT_EQ(value("\\Kinds  Bytes"), "BIN 0a0b");
        EXPECT_EQ(value("\\Kinds  Number"), "DW 0x10");
        EXPECT_EQ(value("\\Kinds  Long"), "QW 0x10");
        EXPECT_EQ(value("\\Kinds  Path"), "EX %SystemRoot%\\a");
        EXPECT_EQ(value("\\Kinds  None"), "NONE");
    }
    EXPECT_TRUE(Registry("SYSTEM", "ControlSet002\\Services\\kssample").contains("made  "));
}

TEST_F(Rules, OneTextOfSeveralGoes)
{
    MergeRegistry(Hive("SYSTEM"), "[\\ControlSet002\\Control\\Kestro]\n\"Filters\"=hex(7):"
                                  "61,00,00,00,6b,00,73,00,00,00,62,00,00,00,00,00\n\n");
    AddDevice(std::string(kService) +
              "DelReg=Old\nAddReg=New\n"
              "[Old]\nHKLM,SYSTEM\\CurrentControlSet\\Control\\Kestro,Filters,0x18002,KS\n"
              "HKLM,SYSTEM\\CurrentControlSet\\Control\\Kestro,Nothing,0x18002,KS\n"
              "[New]\nHKLM,SYSTEM\\CurrentControlSet\\Control\\Kestro,Filters,0x10008,B\n");
    EXPECT_EQ(Registry("SYSTEM", "ControlSet002\\Control\\Kestro")["  filters"], "MSZ a|b");
}

TEST_F(Rules, AServiceThatIsThereKeepsWhatTheFlagsSay)
{
    MergeRegistry(Hive("SYSTEM"),
                  "[\\ControlSet002\\Services\\kssample]\n\"Start\"=dword:00000000\n"
                  "\"ErrorControl\"=dword:00000003\n\"DisplayName\"=\"There\"\n"
                  "\"Group\"=\"There\"\n\"ServiceSidType\"=dword:00000003\n\n");
    AddDevice("[Install.Services]\nAddService=kssample,0x0000415A,Service\n[Service]\n"
              "DisplayName=New\nDescription=New\nServiceType=1\nStartType=3\nErrorControl=1\n"
              "LoadOrderGroup=New\nServiceBinary=%12%\\kssample.sys\nServiceSidType=1\n"
              "BootFlags=4\n");
    EXPECT_EQ(Service("kssample", "ServiceSidType"), "DW 0x3");
    EXPECT_EQ(Service("kssample", "BootFlags"), "DW 0x4");
    EXPECT_EQ(Service("kssample", "Start"), "DW 0x0");
    EXPECT_EQ(Service("kssample", "ErrorControl"), "DW 0x1");
    EXPECT_EQ(Service("kssample", "DisplayName"), "SZ There");
    EXPECT_EQ(Service("kssample", "Description"), "SZ New");
    EXPECT_EQ(Service("kssample", "Group"), "SZ There");
    EXPECT_EQ(Registry("SYSTEM", "ControlSet002\\Control\\GroupOrderList")["  there"],
              "BIN 0100000001000000");
}

TEST_F(Rules, TheFrameworksVersionOfServicesThatAreThere)
{
    MergeRegistry(Hive("SYSTEM"), "[\\ControlSet002\\Services\\ksthere]\n\n");
    AddDevice(std::string(kService) +
              "[Install.Wdf]\nKmdfService=kssample,Kmdf\nKmdfService=ksthere,Kmdf\n"
              "KmdfService=ksnowhere,Kmdf\n[Kmdf]\nKmdfLibraryVersion=1.15\n");
    for (const char* service : {"kssample", "ksthere"})
        EXPECT_EQ(Service(std::string(service) + "\\Parameters\\Wdf", "KmdfLibraryVersion"),
                  "SZ 1.15");
    EXPECT_TRUE(Registry("SYSTEM", "ControlSet002\\Services\\ksnowhere").empty());
}

TEST_F(Rules, AProgramInQuotationMarks)
{
    const auto added =
        AddDevice("[Install.Services]\nAddService=kshelper,,Service\n[Service]\nServiceType=0x10\n"
                  "StartType=2\nErrorControl=1\n"
                  "ServiceBinary=\"\"\"%13%\\kshelper.exe\"\" -k sample\"\n");
    EXPECT_EQ(Service("kshelper", "ImagePath"),
              "EX \"%SystemRoot%\\System32\\DriverStore\\FileRepository\\" +
                  added.folder.filename().string() + "\\kshelper.exe\" -k sample");
}

TEST_F(Rules, FilesGoWhereTheirListsAreSent)
{
    const auto added = AddDevice(
        "CopyFiles=Drivers,Own,Drive,Nowhere,@kshelp.txt\n"
        "[Drivers]\nkssample.sys\n[Own]\nks.dat,ks_x64.dat\n"
        "[Drive]\nksroot.txt\n[Nowhere]\nksuser.txt\n"
        "[DestinationDirs]\nDefaultDestDir=18\nDrivers=12,KsSub\n"
        "Own=13\nDrive=24\nNowhere=53\n"
        "[SourceDisksNames]\n1=Disk,,,x64\n"
        "[SourceDisksFiles]\nkssample.sys=1,deep\n",
        {"x64/deep/kssample.sys", "ks_x64.dat", "ksroot.txt", "ksuser.txt", "kshelp.txt"});
    EXPECT_EQ(ReadFile(In("Windows/System32/drivers/KsSub/kssample.sys")),
              "the content of x64/deep/kssample.sys");
    EXPECT_EQ(ReadFile(In("ksroot.txt")), "the content of ksroot.txt");
    EXPECT_EQ(ReadFile(In("Windows/Help/kshelp.txt")), "the content of kshelp.txt");
    EXPECT_TRUE(IsLogged("ksuser.txt is only staged"));
    auto locked = Registry("SOFTWARE", servicing::kLockdownKey);
    EXPECT_EQ(locked["%systemroot%/system32/drivers/kssub/kssample.sys  source"],
              "EX %SystemRoot%\\System32\\DriverStore\\FileRepository\\" +
                  added.folder.filename().string() + "\\x64\\deep\\kssample.sys");
    EXPECT_EQ(locked["%systemdrive%/ksroot.txt  class"], "DW 0x5");
    for (const char* stays : {"ks.dat", "ksuser.txt"})
        for (const auto& [name, value] : locked)
            EXPECT_EQ(name.find(stays), std::string::npos) << name;
}

TEST_F(Rules, WhatIsNotWrittenIsLogged)
{
    AddDevice(std::string(kService) +
              "Security=\"D:P(A;;GA;;;DA)\"\nAddReg=Settings\nBitReg=Bits\n"
              "[Settings]\nHKLM,SOFTWARE\\Kestro Samples,Name,,a\n"
              "HKLM,SYSTEM\\CurrentControlSet\\Control\\Kestro,Name,,a\n"
              "[Install.Services]\nDelService=ksold\n[Install.Wdf]\nUmdfService=ksuser,Umdf\n");
    EXPECT_TRUE(IsLogged("HKLM\\SOFTWARE\\Kestro Samples is not written"));
    // An image does not tell its domain's administrators.
    EXPECT_TRUE(IsLogged("the Security of the service kssample is not written"));
    EXPECT_TRUE(IsLogged("the BitReg of the service kssample is not written"));
    EXPECT_TRUE(IsLogged("the removal of the service ksold is not written"));
    EXPECT_TRUE(IsLogged("the user-mode driver ksuser is not written"));
    EXPECT_FALSE(IsLogged("CurrentControlSet"));
    EXPECT_EQ(Registry("SYSTEM", "ControlSet002\\Control\\Kestro")["  name"], "SZ a");
}

// --- services ------------------------------------------------------------------------------------------

TEST_F(Rules, WhatAServiceIsToDoWhenItFailsAndWhatStartsIt)
{
    AddDevice("[Install.Services]\nAddService=kshelper,0x2000,Service\n[Service]\n"
              "ServiceType=0x10\nStartType=3\nErrorControl=1\nServiceBinary=%11%\\kshelper.exe\n"
              "FailureActions=Fail\nAddTrigger=Port,Disk\n"
              "[Fail]\nResetPeriod=86400\nNonCrashFailures=1\nAction=1,60000\nAction=0,0\n"
              "[Port]\nTriggerType=1\nAction=1\n"
              "SubType={86e0d1e0-8089-11d0-9ce4-08003e301f73}\n"
              "[Disk]\nTriggerType=1\nAction=2\n"
              "SubType={53f56307-b6bf-11d0-94f2-00a0c91efb8b}\nDataItem=2,\"KS\\A\"\n");
    EXPECT_EQ(Service("kshelper", "FailureActions"), "BIN 8051010000000000000000000200000014000000"
                                                     "0100000060ea00000000000000000000");
    EXPECT_EQ(Service("kshelper", "FailureActionsOnNonCrashFailures"), "DW 0x1");
    EXPECT_EQ(Service("kshelper\\TriggerInfo\\0", "GUID"), "BIN e0d1e0868980d0119ce408003e301f73");
    EXPECT_EQ(Service("kshelper\\TriggerInfo\\0", "Data0"), "");
    EXPECT_EQ(Service("kshelper\\TriggerInfo\\1", "Type"), "DW 0x1");
    EXPECT_EQ(Service("kshelper\\TriggerInfo\\1", "Action"), "DW 0x2");
    EXPECT_EQ(Service("kshelper\\TriggerInfo\\1", "Data0"), "BIN 4b0053005c0041000000");
    EXPECT_EQ(Service("kshelper\\TriggerInfo\\1", "DataType0"), "DW 0x2");
}

TEST_F(Rules, DirectivesThatTheImagesWindowsDoesNotUnderstand)
{
    SetBuild(17763);
    AddDevice("[Install.Services]\nAddService=kshelper,,Service\n[Service]\nServiceType=0x10\n"
              "StartType=3\nErrorControl=1\nServiceBinary=%11%\\kshelper.exe\n"
              "FailureActions=Fail\nAddTrigger=Port\nServiceSidType=1\nBootFlags=4\n"
              "RequiredPrivileges=SeAuditPrivilege\n[Fail]\nAction=1,0\n[Port]\nTriggerType=1\n");
    const auto service = Registry("SYSTEM", "ControlSet002\\Services\\kshelper");
    for (const char* value :
         {"  failureactions", "triggerinfo\\0  type", "  servicesidtype", "  bootflags"})
        EXPECT_FALSE(service.contains(value)) << value;
    EXPECT_EQ(Service("kshelper", "RequiredPrivileges"), "MSZ SeAuditPrivilege");
}

// The form that the service control manager keeps, as exports of many services show it.
TEST_F(Rules, WhoMayDoWhatWithAService)
{
    const std::string install = "[Install.Services]\nAddService=kssample,2,Service\n[Service]\n"
                                "ServiceType=1\nStartType=3\nErrorControl=1\n"
                                "ServiceBinary=%12%\\kssample.sys\n"
                                "Security=\"D:P(A;;GA;;;SY)(D;OICI;CCLC;;;BA)"
                                "(A;;0x2008d;;;S-1-5-80-1-2)\"\n";
    AddDevice(install);
    const std::string head = "BIN 01001480800000008c000000140000003000000002001c0001000000"
                             "02801400ff010f00010100000000000100000000";
    EXPECT_EQ(Service("kssample\\Security", "Security"),
              head + "0200500003000000"
                     "00001400ff010f00010100000000000512000000"
                     "010318000500000001020000000000052000000020020000"
                     "00001c008d00020001030000000000055000000001000000"
                     "02000000"
                     "010100000000000512000000"
                     "010100000000000512000000");
    Remove("oem0.inf");
    MergeRegistry(Hive("SYSTEM"), "[\\ControlSet002\\Services\\kssample]\n\n"
                                  "[\\ControlSet002\\Services\\kssample\\Security]\n"
                                  "\"Security\"=hex(3):01\n\n");
    AddDevice(install);
    EXPECT_EQ(Service("kssample\\Security", "Security"), "BIN 01");
}

TEST_F(Rules, AServiceThatTheInfDoesNotDescribe)
{
    MergeRegistry(Hive("SYSTEM"), "[\\ControlSet002\\Services\\ksthere]\n\"Type\"=dword:00000001\n"
                                  "\"Start\"=dword:00000003\n\n");
    const auto before = Registry("SYSTEM", "ControlSet002\\Services\\ksthere");
    const auto added = AddDevice("[Install.Services]\nAddService=ksthere,2,Nowhere\n");
    EXPECT_EQ(Registry("SYSTEM", "ControlSet002\\Services\\ksthere"), before);
    EXPECT_EQ(OfPackage(added, "\\configurations\\install  service"), "SZ ksthere");
    EXPECT_TRUE(IsLogged("the service ksthere, which the INF does not describe"));
}

TEST_F(Rules, AServiceOfWindowsOutlivesThePackagesThatNameIt)
{
    const std::string install = "[Install.Services]\nAddService=ksframework,0x1fa,Service\n"
                                "[Service]\nServiceType=1\nStartType=3\nErrorControl=1\n"
                                "ServiceBinary=%12%\\ksframework.sys\n";
    MergeRegistry(Hive("SYSTEM"),
                  "[\\ControlSet002\\Services\\ksframework]\n\"Type\"=dword:00000001\n"
                  "\"Start\"=dword:00000001\n\n");
    AddDevice(install);
    EXPECT_EQ(Service("ksframework", "Owners"), "");
    Remove("oem0.inf");
    EXPECT_EQ(Service("ksframework", "Start"), "DW 0x1");
    // Where Windows has none, it comes and goes with the package.
    MergeRegistry(Hive("SYSTEM"), "[-\\ControlSet002\\Services\\ksframework]\n\n");
    AddDevice(install);
    EXPECT_EQ(Service("ksframework", "Owners"), "MSZ oem0.inf");
    Remove("oem0.inf");
    EXPECT_EQ(Service("ksframework", "Start"), "");
}

TEST_F(Rules, OnlyProgramsAreAmongTheServicesThatServer2025Names)
{
    SetBuild(26100);
    const auto added = AddDevice(std::string(kService) +
                                 "[Install.Services]\nAddService=ksfilter,,Filter\n"
                                 "AddService=kshelper,,Helper\n"
                                 "[Filter]\nServiceType=1\nServiceBinary=%12%\\ksfilter.sys\n"
                                 "[Helper]\nServiceType=0x10\nServiceBinary=%11%\\ks.exe\n");
    EXPECT_EQ(OfPackage(added, "\\configurations\\install  win32services"), "MSZ kshelper");
}

// --- devices and files ---------------------------------------------------------------------------------

TEST_F(Rules, ALineWithCompatibleIdsAlone)
{
    AddInf("[Manufacturer]\nKestro Samples=Models,NTamd64\n[Models.NTamd64]\n"
           "Sample=A,,ROOT\\COMPATIBLE\n[A]\n");
    EXPECT_EQ(Database("SYSTEM")["deviceids\\root\\compatible  oem0.inf"], "BIN 02ff0000");
}

TEST_F(Rules, FilesThatAreCopiedOverNoneOrOverOneAlone)
{
    const fs::path drivers = In("Windows/System32/drivers");
    WriteFile(drivers / "ksthere.dat", "there");
    WriteFile(drivers / "ksold.dat", "old");
    AddDevice("CopyFiles=Files\n[Files]\nksthere.dat,,,0x10\nksnew.dat,,,0x10\n"
              "ksold.dat,,,0x400\nksnone.dat,,,0x400\n[DestinationDirs]\nFiles=12\n",
              {"ksthere.dat", "ksnew.dat", "ksold.dat", "ksnone.dat"});
    EXPECT_EQ(ReadFile(drivers / "ksthere.dat"), "there");
    EXPECT_EQ(ReadFile(drivers / "ksnew.dat"), "the content of ksnew.dat");
    EXPECT_EQ(ReadFile(drivers / "ksold.dat"), "the content of ksold.dat");
    EXPECT_FALSE(fs::exists(drivers / "ksnone.dat"));
    auto locked = Registry("SOFTWARE", servicing::kLockdownKey);
    EXPECT_FALSE(locked.contains("%systemroot%/system32/drivers/ksthere.dat  owners"));
    EXPECT_TRUE(locked.contains("%systemroot%/system32/drivers/ksnew.dat  owners"));
    EXPECT_FALSE(locked.contains("%systemroot%/system32/drivers/ksnone.dat  owners"));
    Remove("oem0.inf");
    EXPECT_EQ(ReadFile(drivers / "ksthere.dat"), "there");
}

TEST_F(Rules, A32BitWindowsHasTheUsualDirectoriesFor32BitPrograms)
{
    auto package = MakeBootPackage("disk");
    package.configurations[0].copies[0].destination = {16425, "ks"};
    servicing::ImageWindows windows;
    servicing::DriverEntry entry;
    entry.package = &package;
    entry.windows = &windows;
    const auto path = [&] { return servicing::DriverReflection::FilesOf(entry).at(0).path; };
    EXPECT_EQ(path(), "Windows\\SysWOW64\\ks\\disk.sys");
    windows.architecture = servicing::Architecture::X86;
    EXPECT_EQ(path(), "Windows\\System32\\ks\\disk.sys");
}

TEST_F(Rules, AFileThatIsReplacedIsLogged)
{
    WriteFile(In("Windows/System32/drivers/kssample.sys"), "what the image has");
    const std::string install = std::string("CopyFiles=@kssample.sys\n") + kService +
                                "[DestinationDirs]\nDefaultDestDir=12\n";
    AddDevice(install);
    EXPECT_TRUE(IsLogged("replaces Windows\\System32\\drivers\\kssample.sys"));
    fs::remove(folder_ / "log");
    // Its own it only puts back.
    WriteFile(In("Windows/System32/drivers/kssample.sys"), "something else");
    WriteFile(folder_ / "log", "");
    AddDevice(install);
    EXPECT_FALSE(IsLogged("replaces"));
}

} // namespace
} // namespace kestro::test
