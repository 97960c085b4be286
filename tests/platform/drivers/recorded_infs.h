// recorded_infs.h - INFs that say of three packages what those INFs say from which Windows recorded.
#pragma once

namespace kestro::test {

inline constexpr char kStorageInf[] = R"([Version]
Signature = "$WINDOWS NT$"
Class = SCSIAdapter
ClassGuid = {4D36E97B-E325-11CE-BFC1-08002BE10318}
Provider = %Vendor%
DriverVer = 12/02/2021,100.90.104.21500
CatalogFile = viostor.cat
PnpLockdown = 1

[Manufacturer]
%Vendor% = Controllers, NTamd64

[Controllers.NTamd64]
%VioStorScsi.DeviceDesc% = scsi_inst, PCI\VEN_1AF4&DEV_1001&SUBSYS_00021AF4&REV_00, PCI\VEN_1AF4&DEV_1001
%VioStorScsi.DeviceDesc% = scsi_inst, PCI\VEN_1AF4&DEV_1042&SUBSYS_11001AF4&REV_01, PCI\VEN_1AF4&DEV_1042

[DestinationDirs]
DefaultDestDir = 12

[SourceDisksNames]
1 = "Disk"

[SourceDisksFiles]
viostor.sys = 1

[scsi_inst]
CopyFiles = Miniport

[Miniport]
viostor.sys

[scsi_inst.HW]
AddReg = Interrupts

[Interrupts]
HKR, "Interrupt Management",, 0x00000010
HKR, "Interrupt Management\MessageSignaledInterruptProperties",, 0x00000010
HKR, "Interrupt Management\MessageSignaledInterruptProperties", MSISupported, 0x00010001, 1
HKR, "Interrupt Management\MessageSignaledInterruptProperties", MessageNumberLimit, 0x00010001, 256
HKR, "Interrupt Management\Affinity Policy",, 0x00000010
HKR, "Interrupt Management\Affinity Policy", DevicePolicy, 0x00010001, 5

[scsi_inst.Services]
AddService = viostor, 2, Service, EventLog

[Service]
ServiceType = 1
StartType = 0
ErrorControl = 1
ServiceBinary = %12%\viostor.sys
LoadOrderGroup = SCSI miniport
AddReg = Parameters

[Parameters]
HKR, "Parameters\PnpInterface", "5", 0x00010001, 1
HKR, "Parameters", "BusType", 0x00010001, 1

[EventLog]
AddReg = Messages

[Messages]
HKR,, EventMessageFile, 0x00020000, "%%SystemRoot%%\System32\IoLogMsg.dll"
HKR,, TypesSupported, 0x00010001, 7

[Strings]
Vendor = "Red Hat, Inc."
VioStorScsi.DeviceDesc = "Red Hat VirtIO SCSI controller"
)";

inline constexpr char kMemoryInf[] = R"([Version]
Signature = "$WINDOWS NT$"
Class = System
ClassGuid = {4D36E97D-E325-11CE-BFC1-08002BE10318}
Provider = %Vendor%
DriverVer = 11/12/2020,100.83.104.19000
CatalogFile = Balloon.cat
PnpLockdown = 1

[Manufacturer]
%Vendor% = Devices, NTamd64

[Devices.NTamd64]
%BALLOON.DeviceDesc% = BALLOON_Device, PCI\VEN_1AF4&DEV_1002&SUBSYS_00051AF4&REV_00, PCI\VEN_1AF4&DEV_1002
%BALLOON.DeviceDesc% = BALLOON_Device, PCI\VEN_1AF4&DEV_1045&SUBSYS_11001AF4&REV_01, PCI\VEN_1AF4&DEV_1045

[DestinationDirs]
DefaultDestDir = 12
Framework = 11

[SourceDisksNames]
1 = "Disk"

[SourceDisksFiles]
balloon.sys = 1
WdfCoInstaller01015.dll = 1

[BALLOON_Device.NT]
CopyFiles = Driver

[Driver]
balloon.sys

[BALLOON_Device.NT.Services]
AddService = BALLOON, 2, Service, EventLog

[Service]
DisplayName = %BALLOON.SVCDESC%
ServiceType = 1
StartType = 3
ErrorControl = 1
ServiceBinary = %12%\balloon.sys

[EventLog]
AddReg = Messages

[Messages]
HKR,, TypesSupported, 0x00010001, 7
HKR,, EventMessageFile, 0x00020000, "%%SystemRoot%%\System32\IoLogMsg.dll;%%SystemRoot%%\System32\drivers\balloon.sys"

[BALLOON_Device.NT.CoInstallers]
AddReg = CoInstallers
CopyFiles = Framework

[CoInstallers]
HKR,, CoInstallers32, 0x00010000, "WdfCoInstaller01015.dll,WdfCoInstaller"

[Framework]
WdfCoInstaller01015.dll

[BALLOON_Device.NT.Wdf]
KmdfService = BALLOON, Kmdf

[Kmdf]
KmdfLibraryVersion = 1.15

[Strings]
Vendor = "Red Hat, Inc."
BALLOON.DeviceDesc = "VirtIO Balloon Driver"
BALLOON.SVCDESC = "VirtIO Balloon Service"
)";

inline constexpr char kSocketInf[] = R"([Version]
Signature = "$WINDOWS NT$"
Class = System
ClassGuid = {4D36E97D-E325-11CE-BFC1-08002BE10318}
Provider = %Vendor%
DriverVer = 07/09/2025,100.101.104.28500
CatalogFile = viosock.cat
PnpLockdown = 1

[Manufacturer]
%Vendor% = Sockets, NTamd64.10.0...16299

[Sockets.NTamd64.10.0...16299]
%VirtioSocket.DeviceDesc% = VirtioSocket_Device, PCI\VEN_1AF4&DEV_1012&SUBSYS_00131AF4&REV_00, PCI\VEN_1AF4&DEV_1012
%VirtioSocket.DeviceDesc% = VirtioSocket_Device, PCI\VEN_1AF4&DEV_1053&SUBSYS_11001AF4&REV_01, PCI\VEN_1AF4&DEV_1053

[DestinationDirs]
Driver = 13
Library = 11
Library32 = 16425
Program = 11

[SourceDisksNames]
1 = "Disk"

[SourceDisksFiles]
viosock.sys = 1
viosocklib_x64.dll = 1
viosocklib_x86.dll = 1
viosockwspsvc.exe = 1

[VirtioSocket_Device.NT]
CopyFiles = Driver, Library, Library32, Program

[Driver]
viosock.sys

[Library]
viosocklib.dll, viosocklib_x64.dll

[Library32]
viosocklib.dll, viosocklib_x86.dll

[Program]
viosockwspsvc.exe

[VirtioSocket_Device.NT.HW]
AddReg = Device

[Device]
HKR, "Interrupt Management\MessageSignaledInterruptProperties", MSISupported, 0x00010001, 1

[VirtioSocket_Device.NT.Services]
AddService = VirtioSocket, 2, Service
AddService = VirtioSocketWSP,, ProgramService

[Service]
DisplayName = %VirtioSocket.ServiceDesc%
ServiceType = 1
StartType = 3
ErrorControl = 1
ServiceBinary = %13%\viosock.sys

[ProgramService]
DisplayName = %VirtioSockWSP.ServiceDesc%
ServiceType = 0x10
StartType = 2
ErrorControl = 1
ServiceBinary = %11%\viosockwspsvc.exe

[VirtioSocket_Device.NT.Wdf]
KmdfService = VirtioSocket, Kmdf

[Kmdf]
KmdfLibraryVersion = 1.15

[Strings]
Vendor = "Red Hat, Inc."
VirtioSocket.DeviceDesc = "VirtIO Socket Driver"
VirtioSocket.ServiceDesc = "VirtIO Socket Service"
VirtioSockWSP.ServiceDesc = "VirtIO Socket WSP Service"
)";

} // namespace kestro::test
