// image_records.cpp - the API's records of images and mounts, as callers get them.
#include "image_records.h"

#include "record_block.h"
#include "servicing_error.h"
#include "wine_path.h"

#include <cstddef>

namespace kestro::servicing {
namespace {

static_assert(sizeof(DismImageInfo) == 140 && sizeof(DismWimCustomizedInfo) == 44);

SYSTEMTIME SystemTime(std::uint64_t fileTime)
{
    const FILETIME file = {static_cast<DWORD>(fileTime), static_cast<DWORD>(fileTime >> 32)};
    SYSTEMTIME time = {};
    if (fileTime == 0 || !FileTimeToSystemTime(&file, &time))
        return {};
    return time;
}

void SetNumbers(DismImageInfo& record, const ImageInfo& image)
{
    record.ImageType = DismImageTypeWim;
    record.ImageIndex = image.index;
    record.ImageSize = image.totalBytes;
    record.Architecture = image.architecture;
    record.MajorVersion = image.version[0];
    record.MinorVersion = image.version[1];
    record.Build = image.version[2];
    record.SpBuild = image.version[3];
    record.SpLevel = image.servicePack;
    record.Bootable = image.bootable ? DismImageBootableYes : DismImageBootableNo;
    record.LanguageCount = static_cast<UINT>(image.languages.size());
    record.DefaultLanguageIndex = image.defaultLanguage;
}

DismWimCustomizedInfo CustomizedInfo(const ImageInfo& image)
{
    DismWimCustomizedInfo info = {};
    info.Size = sizeof info;
    info.DirectoryCount = image.directories;
    info.FileCount = image.files;
    info.CreatedTime = SystemTime(image.created);
    info.ModifiedTime = SystemTime(image.modified);
    return info;
}

DismMountStatus StatusOf(MountState state)
{
    switch (state) {
    case MountState::Ok:
        return DismMountStatusOk;
    case MountState::NeedsRemount:
        return DismMountStatusNeedsRemount;
    case MountState::Invalid:
        break;
    }
    return DismMountStatusInvalid;
}

// A path that Windows has no name for is shown as this machine has it.
std::string ShownPath(const std::string& hostPath)
{
    if (hostPath.empty())
        return {};
    try {
        return Utf8(WindowsPath(hostPath).data());
    } catch (const ServicingError&) {
        return hostPath;
    }
}

} // namespace

DismImageInfo* MakeImageRecords(const std::vector<ImageInfo>& images)
{
    using Record = DismImageInfo;
    RecordBlock<Record> block;
    for (const ImageInfo& image : images) {
        SetNumbers(block.Add(), image);
        block.SetText(offsetof(Record, ImageName), image.name);
        block.SetText(offsetof(Record, ImageDescription), image.description);
        block.SetText(offsetof(Record, ProductName), image.productName);
        block.SetText(offsetof(Record, EditionId), image.edition);
        block.SetText(offsetof(Record, InstallationType), image.installationType);
        block.SetText(offsetof(Record, Hal), image.hal);
        block.SetText(offsetof(Record, ProductType), image.productType);
        block.SetText(offsetof(Record, ProductSuite), image.productSuite);
        block.SetText(offsetof(Record, SystemRoot), image.systemRoot);
        block.SetTexts(offsetof(Record, Language), image.languages);
        block.SetRecord(offsetof(Record, CustomizedInfo), CustomizedInfo(image));
    }
    return block.Make();
}

DismMountedImageInfo* MakeMountRecords(const std::vector<MountInfo>& mounts)
{
    using Record = DismMountedImageInfo;
    RecordBlock<Record> block;
    for (const MountInfo& mount : mounts) {
        Record& record = block.Add();
        record.ImageIndex = mount.index;
        record.MountMode = mount.readOnly ? DismReadOnly : DismReadWrite;
        record.MountStatus = StatusOf(mount.state);
        block.SetText(offsetof(Record, MountPath), ShownPath(mount.directory));
        block.SetText(offsetof(Record, ImageFilePath), ShownPath(mount.image));
    }
    return block.Make();
}

} // namespace kestro::servicing
