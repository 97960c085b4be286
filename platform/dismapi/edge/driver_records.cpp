// driver_records.cpp - the API's records of packages and devices, as callers get them.
#include "driver_records.h"

#include "wine_path.h"

#include <cstddef>
#include <cstring>
#include <new>
#include <set>

namespace kestro::servicing {
namespace {

static_assert(sizeof(DismDriverPackage) == 100);

// What was handed out and not given back; only touched inside Serve.
std::set<void*> g_blocks;

// Gathers records and texts, then makes one block of them.
template <class Record>
class BlockMaker {
  public:
    Record& Add()
    {
        records_.emplace_back();
        return records_.back();
    }
    // Sets the text at that offset of the newest record.
    void SetText(std::size_t offset, const std::string& text)
    {
        texts_.push_back({(records_.size() - 1) * sizeof(Record) + offset, characters_.size()});
        const auto wide = Wide(text);
        characters_.insert(characters_.end(), wide.begin(), wide.end());
    }
    Record* Make()
    {
        const std::size_t head = records_.size() * sizeof(Record);
        const std::size_t start = (head + sizeof(WCHAR) - 1) / sizeof(WCHAR) * sizeof(WCHAR);
        // Callers compare the array with null, so even an empty one has an address.
        void* const memory =
            HeapAlloc(GetProcessHeap(), 0, start + characters_.size() * sizeof(WCHAR) + 1);
        if (memory == nullptr)
            throw std::bad_alloc();
        g_blocks.insert(memory);
        auto* const block = static_cast<char*>(memory);
        if (head != 0)
            std::memcpy(block, records_.data(), head);
        if (!characters_.empty())
            std::memcpy(block + start, characters_.data(), characters_.size() * sizeof(WCHAR));
        for (const auto& text : texts_) {
            const char* const address = block + start + text.character * sizeof(WCHAR);
            std::memcpy(block + text.field, &address, sizeof address);
        }
        return static_cast<Record*>(memory);
    }

  private:
    struct Text {
        std::size_t field;
        std::size_t character;
    };
    std::vector<Record> records_;
    std::vector<Text> texts_;
    std::vector<WCHAR> characters_;
};

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
    BlockMaker<Record> block;
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
    BlockMaker<Record> block;
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

DismString* MakeString(const std::string& text)
{
    BlockMaker<DismString> block;
    block.Add();
    block.SetText(offsetof(DismString, Value), text);
    return block.Make();
}

bool DeleteRecords(void* records)
{
    return g_blocks.erase(records) != 0 && HeapFree(GetProcessHeap(), 0, records);
}

} // namespace kestro::servicing
