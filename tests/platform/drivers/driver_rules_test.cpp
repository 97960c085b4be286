// driver_rules_test.cpp - from an INF to the hives and files, rule by rule, of a boot package of the maker
// "Kestro Samples".
#include "driver_case.h"
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
    AddDevice(std::string(kService) + "Security=\"D:P(A;;GA;;;SY)\"\nAddReg=Settings\n"
                                      "[Settings]\nHKLM,SOFTWARE\\Kestro Samples,Name,,a\n"
                                      "HKLM,SYSTEM\\CurrentControlSet\\Control\\Kestro,Name,,a\n");
    EXPECT_TRUE(IsLogged("HKLM\\SOFTWARE\\Kestro Samples is not written"));
    EXPECT_TRUE(IsLogged("the Security of the service kssample is not written"));
    EXPECT_FALSE(IsLogged("CurrentControlSet"));
    EXPECT_EQ(Registry("SYSTEM", "ControlSet002\\Control\\Kestro")["  name"], "SZ a");
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
