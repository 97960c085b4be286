// records.hpp - what the servicing API tells of images, mounts and driver packages: its records, packed by the
// byte, and the same as C++ values with UTF-8 texts.
#ifndef KESTRO_RECORDS_HPP
#define KESTRO_RECORDS_HPP

#include "report.hpp"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <windows.h>

namespace kestro {

// A driver package as the servicing API describes it.
struct PackageDetails {
    std::string publishedName, originalFileName, catalogFile, className, classGuid;
    std::string classDescription, provider;
    std::string date;    // YYYY-MM-DD
    std::string version; // 1.2.3.4
    bool inBox = false, bootCritical = false;
    enum class Signature { Unknown, Unsigned, Signed } signature = Signature::Unknown;
};

// A device that the package is for.
struct DeviceDetails {
    std::string manufacturer, description, hardwareId, service, compatibleIds, excludedIds;
    std::uint32_t architecture = 0; // PROCESSOR_ARCHITECTURE_...
};

// An image of an image file.
struct ImageDetails {
    std::uint32_t index = 0; // counted from 1
    std::string name, description, productName, edition, installationType, productType,
        productSuite;
    std::string hal, systemRoot;
    std::uint64_t size = 0;         // bytes of all its files
    std::uint32_t architecture = 0; // PROCESSOR_ARCHITECTURE_...
    std::string version;            // 10.0.19041.1
    std::uint32_t servicePack = 0;
    enum class Bootable { Yes, No, Unknown } bootable = Bootable::Unknown;
    std::vector<std::string> languages;
    std::string defaultLanguage;
    std::uint32_t directories = 0, files = 0;
    std::string created, modified; // YYYY-MM-DD hh:mm:ss, UTC
};

// A mounted image.
struct MountDetails {
    std::string directory, image;
    std::uint32_t index = 0;
    bool readOnly = false;
    enum class State { Ok, NeedsRemount, Invalid } state = State::Ok;
};

namespace detail {

#pragma pack(push, 1)
struct PackageRecord {
    const wchar_t* publishedName;
    const wchar_t* originalFileName;
    std::int32_t inBox;
    const wchar_t* catalogFile;
    const wchar_t* className;
    const wchar_t* classGuid;
    const wchar_t* classDescription;
    std::int32_t bootCritical;
    std::int32_t signature;
    const wchar_t* provider;
    SYSTEMTIME date;
    std::uint32_t version[4];
};
struct DeviceRecord {
    const wchar_t* manufacturer;
    const wchar_t* description;
    const wchar_t* hardwareId;
    std::uint32_t architecture;
    const wchar_t* service;
    const wchar_t* compatibleIds;
    const wchar_t* excludedIds;
};
struct TextRecord {
    const wchar_t* value;
};
struct FilesRecord { // of an image in a WIM file
    std::uint32_t size, directories, files;
    SYSTEMTIME created, modified;
};
struct ImageRecord {
    std::int32_t type;
    std::uint32_t index;
    const wchar_t* name;
    const wchar_t* description;
    std::uint64_t size;
    std::uint32_t architecture;
    const wchar_t* productName;
    const wchar_t* edition;
    const wchar_t* installationType;
    const wchar_t* hal;
    const wchar_t* productType;
    const wchar_t* productSuite;
    std::uint32_t version[4]; // with the service pack's build
    std::uint32_t servicePack;
    std::int32_t bootable;
    const wchar_t* systemRoot;
    const TextRecord* languages;
    std::uint32_t languageCount, defaultLanguage;
    const FilesRecord* files;
};
struct MountRecord {
    const wchar_t* directory;
    const wchar_t* image;
    std::uint32_t index;
    std::int32_t mode;
    std::int32_t status;
};
#pragma pack(pop)
static_assert(sizeof(PackageRecord) == 100 && sizeof(DeviceRecord) == 52 &&
              sizeof(FilesRecord) == 44 && sizeof(ImageRecord) == 140 && sizeof(MountRecord) == 28);

inline std::string TextOf(const wchar_t* text)
{
    return text != nullptr ? Utf8(text) : std::string();
}

inline std::string VersionOf(const std::uint32_t (&parts)[4])
{
    char text[64];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", parts[0], parts[1], parts[2], parts[3]);
    return text;
}

// A record's field, which may lie at any address.
inline SYSTEMTIME TimeAt(const void* field)
{
    SYSTEMTIME time;
    std::memcpy(&time, field, sizeof time);
    return time;
}

inline std::string DayOf(const SYSTEMTIME& time)
{
    char text[32] = "";
    if (time.wYear != 0)
        std::snprintf(text, sizeof text, "%04u-%02u-%02u", time.wYear, time.wMonth, time.wDay);
    return text;
}

inline std::string MomentOf(const SYSTEMTIME& time)
{
    char text[32] = "";
    if (time.wYear != 0)
        std::snprintf(text, sizeof text, " %02u:%02u:%02u", time.wHour, time.wMinute, time.wSecond);
    return DayOf(time) + text;
}

inline PackageDetails DetailsOf(const PackageRecord& record)
{
    PackageDetails details;
    details.publishedName = TextOf(record.publishedName);
    details.originalFileName = TextOf(record.originalFileName);
    details.catalogFile = TextOf(record.catalogFile);
    details.className = TextOf(record.className);
    details.classGuid = TextOf(record.classGuid);
    details.classDescription = TextOf(record.classDescription);
    details.provider = TextOf(record.provider);
    details.date = DayOf(TimeAt(&record.date));
    const std::uint32_t version[4] = {record.version[0], record.version[1], record.version[2],
                                      record.version[3]};
    details.version = VersionOf(version);
    details.inBox = record.inBox != 0;
    details.bootCritical = record.bootCritical != 0;
    details.signature = static_cast<PackageDetails::Signature>(record.signature);
    return details;
}

inline DeviceDetails DetailsOf(const DeviceRecord& record)
{
    DeviceDetails details;
    details.manufacturer = TextOf(record.manufacturer);
    details.description = TextOf(record.description);
    details.hardwareId = TextOf(record.hardwareId);
    details.service = TextOf(record.service);
    details.compatibleIds = TextOf(record.compatibleIds);
    details.excludedIds = TextOf(record.excludedIds);
    details.architecture = record.architecture;
    return details;
}

inline ImageDetails DetailsOf(const ImageRecord& record)
{
    ImageDetails details;
    details.index = record.index;
    details.name = TextOf(record.name);
    details.description = TextOf(record.description);
    details.productName = TextOf(record.productName);
    details.edition = TextOf(record.edition);
    details.installationType = TextOf(record.installationType);
    details.productType = TextOf(record.productType);
    details.productSuite = TextOf(record.productSuite);
    details.hal = TextOf(record.hal);
    details.systemRoot = TextOf(record.systemRoot);
    details.size = record.size;
    details.architecture = record.architecture;
    const std::uint32_t version[4] = {record.version[0], record.version[1], record.version[2],
                                      record.version[3]};
    details.version = VersionOf(version);
    details.servicePack = record.servicePack;
    details.bootable = record.bootable == 0   ? ImageDetails::Bootable::Yes
                       : record.bootable == 1 ? ImageDetails::Bootable::No
                                              : ImageDetails::Bootable::Unknown;
    for (std::uint32_t i = 0; record.languages != nullptr && i < record.languageCount; ++i)
        details.languages.push_back(TextOf(record.languages[i].value));
    if (record.defaultLanguage < details.languages.size())
        details.defaultLanguage = details.languages[record.defaultLanguage];
    // What follows the records of another kind of image is unknown.
    if (record.files != nullptr && record.type == 0) {
        details.directories = record.files->directories;
        details.files = record.files->files;
        details.created = MomentOf(TimeAt(&record.files->created));
        details.modified = MomentOf(TimeAt(&record.files->modified));
    }
    return details;
}

inline MountDetails DetailsOf(const MountRecord& record)
{
    MountDetails details;
    details.directory = TextOf(record.directory);
    details.image = TextOf(record.image);
    details.index = record.index;
    details.readOnly = record.mode != 0;
    details.state = record.status == 0   ? MountDetails::State::Ok
                    : record.status == 1 ? MountDetails::State::NeedsRemount
                                         : MountDetails::State::Invalid;
    return details;
}

} // namespace detail

} // namespace kestro

#endif
