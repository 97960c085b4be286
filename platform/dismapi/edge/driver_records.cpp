// driver_records.cpp - the API's records of packages and devices, as callers get them.
#include "driver_records.h"

#include "record_block.h"

#include <cstddef>

namespace kestro::servicing {
namespace {

static_assert(sizeof(DismDriverPackage) == 100);

SYSTEMTIME SystemTime(const DriverDate& date)
{
    SYSTEMTIME time = {};
    time.wYear = date.year;
    time.wMonth = date.month;
    time.wDay = date.day;
    FILETIME file;
    // There and back, for the day of the week.
    if (date.year == 0 || !SystemTimeToFileTime(&time, &file) ||
        !FileTimeToSystemTime(&file, &time))
        return {};
    return time;
}

DismDriverSignature Signature(const PackageInfo& info)
{
    if (info.signature == CatalogState::Signed)
        return DismDriverSignatureSigned;
    // What came with Windows is covered by catalogs of whole features, which are not looked at.
    return info.inBox ? DismDriverSignatureUnknown : DismDriverSignatureUnsigned;
}

UINT ProcessorOf(const std::string& name)
{
    if (name == "amd64")
        return PROCESSOR_ARCHITECTURE_AMD64;
    if (name == "x86")
        return PROCESSOR_ARCHITECTURE_INTEL;
    if (name == "arm64")
        return PROCESSOR_ARCHITECTURE_ARM64;
    if (name == "arm")
        return PROCESSOR_ARCHITECTURE_ARM;
    return PROCESSOR_ARCHITECTURE_UNKNOWN;
}

std::string Joined(const std::vector<std::string>& ids)
{
    std::string text;
    for (const auto& id : ids)
        text += (text.empty() ? "" : ",") + id;
    return text;
}

} // namespace

DismDriverPackage* MakePackageRecords(const std::vector<PackageInfo>& packages)
{
    using Record = DismDriverPackage;
    RecordBlock<Record> block;
    for (const auto& info : packages) {
        const DriverPackage& package = info.package;
        Record& record = block.Add();
        record.InBox = info.inBox;
        record.BootCritical = package.bootCritical;
        record.DriverSignature = Signature(info);
        record.Date = SystemTime(package.date);
        record.MajorVersion = package.version[0];
        record.MinorVersion = package.version[1];
        record.Build = package.version[2];
        record.Revision = package.version[3];
        block.SetText(offsetof(Record, PublishedName), info.publishedName);
        block.SetText(offsetof(Record, OriginalFileName), info.originalFileName);
        block.SetText(offsetof(Record, CatalogFile), package.catalog);
        block.SetText(offsetof(Record, ClassName), package.className);
        block.SetText(offsetof(Record, ClassGuid), package.classGuid);
        block.SetText(offsetof(Record, ClassDescription), package.classDescription);
        block.SetText(offsetof(Record, ProviderName), package.provider);
    }
    return block.Make();
}

DismDriver* MakeDriverRecords(const DriverPackage& package, Architecture architecture)
{
    using Record = DismDriver;
    RecordBlock<Record> block;
    for (const auto& model : package.models) {
        // Without a decoration a model is for every architecture, here for the image's.
        block.Add().Architecture = ProcessorOf(
            model.architecture.empty() ? ArchitectureName(architecture) : model.architecture);
        block.SetText(offsetof(Record, ManufacturerName), model.manufacturer);
        block.SetText(offsetof(Record, HardwareDescription), model.description);
        block.SetText(offsetof(Record, HardwareId), model.hardwareId);
        block.SetText(offsetof(Record, ServiceName), model.service);
        block.SetText(offsetof(Record, CompatibleIds), Joined(model.compatibleIds));
        block.SetText(offsetof(Record, ExcludeIds), Joined(package.excludedIds));
    }
    return block.Make();
}

} // namespace kestro::servicing
