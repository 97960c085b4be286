// driver_recordings_test.cpp - what Windows wrote of three packages, value by value, against what is in the
// hives after packages that say the same were added to images of the same Windows. Other than in the
// recordings are the folder's hash, the dates of import, the folder of origin and the tags.
#include "driver_case.h"
#include "inf_package.h"
#include "recorded_infs.h"
#include "sample_catalog.h"
#include "sample_image.h"

#include <utility>

using namespace kestro::servicing;

namespace kestro::test {
namespace {

// A package as it was recorded, beside its INF.
struct Recorded {
    std::string name;
    std::string inf;
    std::string catalog;
    std::vector<std::string> files;
    std::uintmax_t size = 0; // of all files; 0 where no size was recorded
    std::map<std::string, std::string> attributes = {}; // of the catalog
};

class Recordings : public DriverCase {
  protected:
    void Install(const Recorded& recorded, unsigned build)
    {
        MergeRegistry(Hive("SOFTWARE"), "[\\Microsoft\\Windows NT\\CurrentVersion]\n"
                                        "\"CurrentMajorVersionNumber\"=dword:0000000a\n"
                                        "\"CurrentMinorVersionNumber\"=dword:00000000\n"
                                        "\"CurrentBuildNumber\"=\"" +
                                            std::to_string(build) + "\"\n\n");
        const fs::path inf = WritePackage(recorded, 0);
        if (recorded.size != 0)
            WritePackage(recorded, recorded.size - SizeOf(inf.parent_path()));
        DriverStore store(Root());
        const auto added = store.Add(PackageReader(Root()).Read(inf), false);
        store.Save();
        EXPECT_EQ(added.published, "oem0.inf");
        digits_ = added.folder.filename().string();
        digits_.erase(0, digits_.rfind('_') + 1);
    }
    // With catalog and files, of which the first gets so many bytes more.
    fs::path WritePackage(const Recorded& recorded, std::uintmax_t more) const
    {
        const fs::path folder = folder_ / "source";
        WriteFile(folder / (recorded.name + ".inf"), recorded.inf);
        samples::SampleCatalog catalog;
        catalog.attributes = recorded.attributes;
        catalog.files = {samples::Listing(recorded.name + ".inf", recorded.inf)};
        for (const auto& file : recorded.files) {
            const samples::SampleImage image(samples::kAmd64, file,
                                             std::string(std::exchange(more, 0), '\0'));
            WriteFile(folder / file, image.Bytes());
            catalog.files.push_back(samples::Listing(file, image));
        }
        const samples::SampleSigner signer({"Microsoft Windows Hardware Compatibility Publisher",
                                            {samples::kWhql, samples::kCodeSigning}},
                                           &samples::RootSigner());
        WriteFile(folder / recorded.catalog, catalog.SignedBy(signer));
        return folder / (recorded.name + ".inf");
    }
    static std::uintmax_t SizeOf(const fs::path& folder)
    {
        std::uintmax_t size = 0;
        for (const auto& file : fs::directory_iterator(folder))
            size += file.file_size();
        return size;
    }

    // In the lines the folder's digits are 0123456789abcdef.
    void ExpectRecorded(const std::string& hive, const std::string& key, std::string lines,
                        const std::vector<std::string>& ignored = {}) const
    {
        constexpr std::string_view digits = "0123456789abcdef";
        for (auto at = lines.find(digits); at != std::string::npos; at = lines.find(digits, at))
            lines.replace(at, digits.size(), digits_);
        EXPECT_EQ(Differences(Registry(hive, key), Expected(lines), ignored), "") << key;
    }
    void ExpectDatabase(const std::string& lines) const
    {
        ExpectRecorded("SYSTEM", "DriverDatabase", lines, {"  oempath"});
    }
    void ExpectServices(const std::string& lines) const
    {
        ExpectRecorded("SYSTEM", "ControlSet002\\Services", lines, {"  tag"});
    }
    void ExpectLocked(const std::string& lines) const
    {
        ExpectRecorded("SOFTWARE", kLockdownKey, lines);
    }

    std::string digits_;
};

// The same for each of the four ids of a package.
std::string Descriptors(const std::string& folder, const std::vector<std::string>& ids,
                        const std::string& section, const std::string& description)
{
    std::string lines;
    for (const auto& id : ids) {
        const std::string key = "DriverPackages\\" + folder + "\\Descriptors\\PCI\\" + id;
        lines += key + "  Configuration  SZ " + section + "\n" + key + "  Description  SZ " +
                 description + "\n" + key + "  Manufacturer  SZ %vendor%\n";
    }
    return lines;
}

TEST_F(Recordings, AStorageControllerOnWindows11)
{
    Install({"viostor",
             kStorageInf,
             "viostor.cat",
             {"viostor.sys"},
             0x129AE,
             {{"Submission ID", "30097770_13594293531627172_1152921505694314466"}}},
            22000);
    ExpectDatabase(R"(  OemInfMap  BIN 80
DriverInfFiles\oem0.inf  @  MSZ viostor.inf_amd64_0123456789abcdef
DriverInfFiles\oem0.inf  Active  SZ viostor.inf_amd64_0123456789abcdef
DriverInfFiles\oem0.inf  Configurations  MSZ scsi_inst
DeviceIds\PCI\VEN_1AF4&DEV_1001&SUBSYS_00021AF4&REV_00  oem0.inf  BIN 01ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1001  oem0.inf  BIN 02ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1042&SUBSYS_11001AF4&REV_01  oem0.inf  BIN 01ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1042  oem0.inf  BIN 02ff0000
DeviceIds\{4d36e97b-e325-11ce-bfc1-08002be10318}  oem0.inf  NONE
DriverPackages\viostor.inf_amd64_0123456789abcdef  @  SZ oem0.inf
DriverPackages\viostor.inf_amd64_0123456789abcdef  InfName  SZ viostor.inf
DriverPackages\viostor.inf_amd64_0123456789abcdef  Catalog  SZ viostor.cat
DriverPackages\viostor.inf_amd64_0123456789abcdef  Provider  SZ Red Hat, Inc.
DriverPackages\viostor.inf_amd64_0123456789abcdef  FileSize  QW 0x129ae
DriverPackages\viostor.inf_amd64_0123456789abcdef  StatusFlags  DW 0x12
DriverPackages\viostor.inf_amd64_0123456789abcdef  SignerScore  DW 0xd000005
DriverPackages\viostor.inf_amd64_0123456789abcdef  SignerName  SZ Microsoft Windows Hardware Compatibility Publisher
DriverPackages\viostor.inf_amd64_0123456789abcdef  Version  BIN 00ff0900000000007be9364d25e3ce11bfc108002be1031800c0978c0fe7d701fc5368005a0064000000000000000000
DriverPackages\viostor.inf_amd64_0123456789abcdef\Configurations\scsi_inst  ConfigFlags  DW 0x0
DriverPackages\viostor.inf_amd64_0123456789abcdef\Configurations\scsi_inst  ConfigScope  DW 0x7
DriverPackages\viostor.inf_amd64_0123456789abcdef\Configurations\scsi_inst  Service  SZ viostor
DriverPackages\viostor.inf_amd64_0123456789abcdef\Configurations\scsi_inst\Device\Interrupt Management\Affinity Policy  DevicePolicy  DW 0x5
DriverPackages\viostor.inf_amd64_0123456789abcdef\Configurations\scsi_inst\Device\Interrupt Management\MessageSignaledInterruptProperties  MSISupported  DW 0x1
DriverPackages\viostor.inf_amd64_0123456789abcdef\Configurations\scsi_inst\Device\Interrupt Management\MessageSignaledInterruptProperties  MessageNumberLimit  DW 0x100
DriverPackages\viostor.inf_amd64_0123456789abcdef\Configurations\scsi_inst\Services\viostor\Parameters  BusType  DW 0x1
DriverPackages\viostor.inf_amd64_0123456789abcdef\Configurations\scsi_inst\Services\viostor\Parameters\PnpInterface  5  DW 0x1
DriverPackages\viostor.inf_amd64_0123456789abcdef\Strings  vendor  SZ Red Hat, Inc.
DriverPackages\viostor.inf_amd64_0123456789abcdef\Strings  viostorscsi.devicedesc  SZ Red Hat VirtIO SCSI controller
DriverPackages\viostor.inf_amd64_0123456789abcdef\Properties\{4da162c1-5eb1-4140-a444-5064c9814e76}\0009  @  0xffff0012 30097770_13594293531627172_1152921505694314466
)" + Descriptors("viostor.inf_amd64_0123456789abcdef",
                 {"VEN_1AF4&DEV_1001&SUBSYS_00021AF4&REV_00", "VEN_1AF4&DEV_1001",
                  "VEN_1AF4&DEV_1042&SUBSYS_11001AF4&REV_01", "VEN_1AF4&DEV_1042"},
                 "scsi_inst", "%viostorscsi.devicedesc%"));
    ExpectServices(R"(viostor  Type  DW 0x1
viostor  Start  DW 0x0
viostor  ErrorControl  DW 0x1
viostor  Group  SZ SCSI miniport
viostor  ImagePath  EX System32\drivers\viostor.sys
viostor  Owners  MSZ oem0.inf
viostor\Parameters  BusType  DW 0x1
viostor\Parameters\PnpInterface  5  DW 0x1
EventLog\System\viostor  EventMessageFile  EX %SystemRoot%\System32\IoLogMsg.dll
EventLog\System\viostor  TypesSupported  DW 0x7
)");
    ExpectLocked(R"(%SystemRoot%/System32/drivers/viostor.sys  Class  DW 0x4
%SystemRoot%/System32/drivers/viostor.sys  Owners  MSZ oem0.inf
%SystemRoot%/System32/drivers/viostor.sys  Source  EX %SystemRoot%\System32\DriverStore\FileRepository\viostor.inf_amd64_0123456789abcdef\viostor.sys
)");
    EXPECT_EQ(Service("viostor", "Tag"), "DW 0x1");
    EXPECT_EQ(Registry("SYSTEM", "ControlSet002\\Control\\GroupOrderList")["  scsi miniport"],
              "BIN 0100000001000000");
}

TEST_F(Recordings, ASystemDeviceOnWindows10)
{
    Install({"balloon", kMemoryInf, "Balloon.cat", {"balloon.sys", "WdfCoInstaller01015.dll"}},
            19042);
    ExpectDatabase(R"(  OemInfMap  BIN 80
DriverInfFiles\oem0.inf  @  MSZ balloon.inf_amd64_0123456789abcdef
DriverInfFiles\oem0.inf  Active  SZ balloon.inf_amd64_0123456789abcdef
DriverInfFiles\oem0.inf  Configurations  MSZ BALLOON_Device.NT
DeviceIds\PCI\VEN_1AF4&DEV_1002&SUBSYS_00051AF4&REV_00  oem0.inf  BIN 01ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1002  oem0.inf  BIN 02ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1045&SUBSYS_11001AF4&REV_01  oem0.inf  BIN 01ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1045  oem0.inf  BIN 02ff0000
DeviceIds\{4d36e97d-e325-11ce-bfc1-08002be10318}  oem0.inf  NONE
DriverPackages\balloon.inf_amd64_0123456789abcdef  @  SZ oem0.inf
DriverPackages\balloon.inf_amd64_0123456789abcdef  InfName  SZ balloon.inf
DriverPackages\balloon.inf_amd64_0123456789abcdef  Catalog  SZ Balloon.cat
DriverPackages\balloon.inf_amd64_0123456789abcdef  Provider  SZ Red Hat, Inc.
DriverPackages\balloon.inf_amd64_0123456789abcdef  SignerName  SZ 
DriverPackages\balloon.inf_amd64_0123456789abcdef  SignerScore  DW 0xd000004
DriverPackages\balloon.inf_amd64_0123456789abcdef  StatusFlags  DW 0x12
DriverPackages\balloon.inf_amd64_0123456789abcdef  Version  BIN 00ff0900000000007de9364d25e3ce11bfc108002be1031800008ec386b8d601384a6800530064000000000000000000
DriverPackages\balloon.inf_amd64_0123456789abcdef\Configurations\BALLOON_Device.NT  ConfigFlags  DW 0x0
DriverPackages\balloon.inf_amd64_0123456789abcdef\Configurations\BALLOON_Device.NT  ConfigScope  DW 0x105
DriverPackages\balloon.inf_amd64_0123456789abcdef\Configurations\BALLOON_Device.NT  Service  SZ BALLOON
DriverPackages\balloon.inf_amd64_0123456789abcdef\Strings  vendor  SZ Red Hat, Inc.
DriverPackages\balloon.inf_amd64_0123456789abcdef\Strings  balloon.devicedesc  SZ VirtIO Balloon Driver
)" + Descriptors("balloon.inf_amd64_0123456789abcdef",
                 {"VEN_1AF4&DEV_1002&SUBSYS_00051AF4&REV_00", "VEN_1AF4&DEV_1002",
                  "VEN_1AF4&DEV_1045&SUBSYS_11001AF4&REV_01", "VEN_1AF4&DEV_1045"},
                 "BALLOON_Device.NT", "%balloon.devicedesc%"));
    ExpectServices(R"(BALLOON  Type  DW 0x1
BALLOON  Start  DW 0x3
BALLOON  ErrorControl  DW 0x1
BALLOON  ImagePath  EX \SystemRoot\System32\drivers\balloon.sys
BALLOON  Owners  MSZ oem0.inf
BALLOON  DisplayName  SZ @oem0.inf,%BALLOON.SVCDESC%;VirtIO Balloon Service
BALLOON\Parameters\Wdf  KmdfLibraryVersion  SZ 1.15
EventLog\System\BALLOON  TypesSupported  DW 0x7
EventLog\System\BALLOON  EventMessageFile  EX %SystemRoot%\System32\IoLogMsg.dll;%SystemRoot%\System32\drivers\balloon.sys
)");
    ExpectLocked(R"(%SystemRoot%/System32/drivers/balloon.sys  Class  DW 0x4
%SystemRoot%/System32/drivers/balloon.sys  Owners  MSZ oem0.inf
%SystemRoot%/System32/drivers/balloon.sys  Source  EX %SystemRoot%\System32\DriverStore\FileRepository\balloon.inf_amd64_0123456789abcdef\balloon.sys
)");
}

TEST_F(Recordings, TwoServicesOnServer2025)
{
    Install({"viosock",
             kSocketInf,
             "viosock.cat",
             {"viosock.sys", "viosocklib_x64.dll", "viosocklib_x86.dll", "viosockwspsvc.exe"},
             0x7FAED,
             {{"Universal", "True"}, {"Declarative", "True"}}},
            26100);
    ExpectDatabase(R"(  OemInfMap  BIN 80
DriverInfFiles\oem0.inf  @  MSZ viosock.inf_amd64_0123456789abcdef
DriverInfFiles\oem0.inf  Active  SZ viosock.inf_amd64_0123456789abcdef
DriverInfFiles\oem0.inf  Configurations  MSZ VirtioSocket_Device.NT
DeviceIds\PCI\VEN_1AF4&DEV_1012&SUBSYS_00131AF4&REV_00  oem0.inf  BIN 01ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1012  oem0.inf  BIN 02ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1053&SUBSYS_11001AF4&REV_01  oem0.inf  BIN 01ff0000
DeviceIds\PCI\VEN_1AF4&DEV_1053  oem0.inf  BIN 02ff0000
DeviceIds\{4d36e97d-e325-11ce-bfc1-08002be10318}  oem0.inf  NONE
DriverPackages\viosock.inf_amd64_0123456789abcdef  @  SZ oem0.inf
DriverPackages\viosock.inf_amd64_0123456789abcdef  InfName  SZ viosock.inf
DriverPackages\viosock.inf_amd64_0123456789abcdef  Catalog  SZ viosock.cat
DriverPackages\viosock.inf_amd64_0123456789abcdef  Provider  SZ Red Hat, Inc.
DriverPackages\viosock.inf_amd64_0123456789abcdef  FileSize  QW 0x7faed
DriverPackages\viosock.inf_amd64_0123456789abcdef  CatalogAttributes  DW 0x80000003
DriverPackages\viosock.inf_amd64_0123456789abcdef  LockLevel  DW 0x2
DriverPackages\viosock.inf_amd64_0123456789abcdef  OsVersionFloor  DW 0xa003fab
DriverPackages\viosock.inf_amd64_0123456789abcdef  SignerName  SZ Microsoft Windows Hardware Compatibility Publisher
DriverPackages\viosock.inf_amd64_0123456789abcdef  SignerScore  DW 0xd000005
DriverPackages\viosock.inf_amd64_0123456789abcdef  StatusFlags  DW 0x33
DriverPackages\viosock.inf_amd64_0123456789abcdef  Version  BIN 00ff0900000000007de9364d25e3ce11bfc108002be103180000cd6964f0db01546f6800650064000000000000000000
DriverPackages\viosock.inf_amd64_0123456789abcdef\Configurations\VirtioSocket_Device.NT  ConfigFlags  DW 0x0
DriverPackages\viosock.inf_amd64_0123456789abcdef\Configurations\VirtioSocket_Device.NT  ConfigScope  DW 0xf7f
DriverPackages\viosock.inf_amd64_0123456789abcdef\Configurations\VirtioSocket_Device.NT  Service  SZ VirtioSocket
DriverPackages\viosock.inf_amd64_0123456789abcdef\Configurations\VirtioSocket_Device.NT  Win32Services  MSZ VirtioSocketWSP
DriverPackages\viosock.inf_amd64_0123456789abcdef\Strings  vendor  SZ Red Hat, Inc.
DriverPackages\viosock.inf_amd64_0123456789abcdef\Strings  virtiosocket.devicedesc  SZ VirtIO Socket Driver
)" + Descriptors("viosock.inf_amd64_0123456789abcdef",
                 {"VEN_1AF4&DEV_1012&SUBSYS_00131AF4&REV_00", "VEN_1AF4&DEV_1012",
                  "VEN_1AF4&DEV_1053&SUBSYS_11001AF4&REV_01", "VEN_1AF4&DEV_1053"},
                 "VirtioSocket_Device.NT", "%virtiosocket.devicedesc%"));
    ExpectServices(R"(VirtioSocket  Type  DW 0x1
VirtioSocket  Start  DW 0x3
VirtioSocket  ErrorControl  DW 0x1
VirtioSocket  Owners  MSZ oem0.inf
VirtioSocket  DisplayName  SZ @oem0.inf,%VirtioSocket.ServiceDesc%;VirtIO Socket Service
VirtioSocket  ImagePath  EX \SystemRoot\System32\DriverStore\FileRepository\viosock.inf_amd64_0123456789abcdef\viosock.sys
VirtioSocket\Parameters\Wdf  KmdfLibraryVersion  SZ 1.15
VirtioSocketWSP  Type  DW 0x10
VirtioSocketWSP  Start  DW 0x2
VirtioSocketWSP  ErrorControl  DW 0x1
VirtioSocketWSP  ImagePath  EX %SystemRoot%\System32\viosockwspsvc.exe
VirtioSocketWSP  ObjectName  SZ LocalSystem
VirtioSocketWSP  Owners  MSZ oem0.inf
VirtioSocketWSP  DisplayName  SZ @oem0.inf,%VirtioSockWSP.ServiceDesc%;VirtIO Socket WSP Service
)");
    const std::string folder =
        R"(EX %SystemRoot%\System32\DriverStore\FileRepository\viosock.inf_amd64_0123456789abcdef\)";
    std::string locked;
    for (const auto& [file, source] :
         {std::pair("System32/viosocklib.dll", "viosocklib_x64.dll"),
          std::pair("SysWOW64/viosocklib.dll", "viosocklib_x86.dll"),
          std::pair("System32/viosockwspsvc.exe", "viosockwspsvc.exe")}) {
        const std::string key = std::string("%SystemRoot%/") + file;
        locked += key + "  Class  DW 0x4\n" + key + "  Owners  MSZ oem0.inf\n" + key +
                  "  Source  " + folder + source + "\n";
    }
    ExpectLocked(locked);
}

} // namespace
} // namespace kestro::test
