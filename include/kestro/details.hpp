// details.hpp - what a details query finds out, and the session that it leaves open.
//
// GetDriverInfo tells a host next to nothing: it drops the records, keeps the session open and returns the
// same value for success and for failure in its W form. The library calls the servicing API through its
// import table; while a query runs, the two calls that matter are watched there.
#ifndef KESTRO_DETAILS_HPP
#define KESTRO_DETAILS_HPP

#include "library.hpp"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
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

namespace detail {

// The servicing API's records, packed by the byte.
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
#pragma pack(pop)
static_assert(sizeof(PackageRecord) == 100 && sizeof(DeviceRecord) == 52);

inline std::string TextOf(const wchar_t* text)
{
    return text != nullptr ? Utf8(text) : std::string();
}

inline PackageDetails DetailsOf(const PackageRecord& record)
{
    char date[32] = "", version[64];
    SYSTEMTIME day;
    std::memcpy(&day, &record.date, sizeof day);
    if (day.wYear != 0)
        std::snprintf(date, sizeof date, "%04u-%02u-%02u", day.wYear, day.wMonth, day.wDay);
    std::snprintf(version, sizeof version, "%u.%u.%u.%u", record.version[0], record.version[1],
                  record.version[2], record.version[3]);
    PackageDetails details;
    details.publishedName = TextOf(record.publishedName);
    details.originalFileName = TextOf(record.originalFileName);
    details.catalogFile = TextOf(record.catalogFile);
    details.className = TextOf(record.className);
    details.classGuid = TextOf(record.classGuid);
    details.classDescription = TextOf(record.classDescription);
    details.provider = TextOf(record.provider);
    details.date = date;
    details.version = version;
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

// Where the loaded module keeps the address of a function it imports by name; null if it imports none.
inline void** ImportSlot(HMODULE module, const char* function)
{
    auto* const base = reinterpret_cast<char*>(module);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (directory.VirtualAddress == 0)
        return nullptr;
    for (const auto* dll =
             reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
         dll->Name != 0; ++dll) {
        const auto* name =
            reinterpret_cast<const IMAGE_THUNK_DATA*>(base + dll->OriginalFirstThunk);
        auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + dll->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++slot) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal))
                continue;
            const auto* const import =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(import->Name), function) == 0)
                return reinterpret_cast<void**>(&slot->u1.Function);
        }
    }
    return nullptr;
}

// Leads one import of the loaded library to another function while it lives.
class WatchedImport {
  public:
    WatchedImport(HMODULE module, const char* function, void* watcher)
        : slot_(ImportSlot(module, function))
    {
        if (slot_ == nullptr)
            throw LoadError(std::string("Kestro.dll does not import ") + function,
                            ERROR_PROC_NOT_FOUND);
        original_ = Exchange(watcher);
    }
    ~WatchedImport() { Exchange(original_); }
    WatchedImport(const WatchedImport&) = delete;
    WatchedImport& operator=(const WatchedImport&) = delete;

    void* Original() const { return original_; }

  private:
    void* Exchange(void* function)
    {
        DWORD before = 0;
        VirtualProtect(slot_, sizeof *slot_, PAGE_READWRITE, &before);
        void* const old = std::exchange(*slot_, function);
        VirtualProtect(slot_, sizeof *slot_, before, &before);
        return old;
    }

    void** slot_;
    void* original_ = nullptr;
};

// A function of the servicing API that the library has loaded.
template <class Function>
Function* ServicingFunction(const char* name)
{
    const HMODULE api = GetModuleHandleW(L"DismApi.dll");
    const FARPROC function = api != nullptr ? GetProcAddress(api, name) : nullptr;
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(function));
}

// What a query asked the servicing API, and what it got.
class QueryWatch {
  public:
    explicit QueryWatch(HMODULE library)
        : open_(library, "DismOpenSession", reinterpret_cast<void*>(&Open)),
          query_(library, "DismGetDriverInfo", reinterpret_cast<void*>(&Query))
    {
        Active() = this;
    }
    ~QueryWatch() { Active() = nullptr; }

    UINT session = 0;
    bool queried = false;
    HRESULT result = S_OK;
    DeviceRecord* devices = nullptr;
    UINT count = 0;
    PackageRecord* package = nullptr;

  private:
    // Servicing calls of one process must not overlap, so there is one watch at a time.
    static QueryWatch*& Active()
    {
        static QueryWatch* active = nullptr;
        return active;
    }
    static HRESULT WINAPI Open(const wchar_t* image, const wchar_t* windows, const wchar_t* drive,
                               UINT* session)
    {
        QueryWatch& watch = *Active();
        const auto open = reinterpret_cast<decltype(&Open)>(watch.open_.Original());
        const HRESULT result = open(image, windows, drive, session);
        if (SUCCEEDED(result))
            watch.session = *session;
        return result;
    }
    static HRESULT WINAPI Query(UINT session, const wchar_t* driver, DeviceRecord** devices,
                                UINT* count, PackageRecord** package)
    {
        QueryWatch& watch = *Active();
        const auto query = reinterpret_cast<decltype(&Query)>(watch.query_.Original());
        watch.result = query(session, driver, devices, count, package);
        watch.queried = true;
        if (SUCCEEDED(watch.result)) {
            watch.devices = *devices;
            watch.count = *count;
            watch.package = *package;
        }
        return watch.result;
    }

    WatchedImport open_, query_;
};

} // namespace detail

// The session, the API's initialisation and the records that a successful details query leaves behind:
// given back with the object. No other servicing call works properly before that.
class DetailsSession {
  public:
    DetailsSession() = default;
    DetailsSession(UINT session, void* devices, void* package)
        : open_(true), session_(session), devices_(devices), package_(package)
    {
    }
    DetailsSession(DetailsSession&& other) noexcept
        : open_(std::exchange(other.open_, false)), session_(other.session_),
          devices_(other.devices_), package_(other.package_)
    {
    }
    DetailsSession& operator=(DetailsSession&& other) noexcept
    {
        std::swap(open_, other.open_);
        std::swap(session_, other.session_);
        std::swap(devices_, other.devices_);
        std::swap(package_, other.package_);
        return *this;
    }
    ~DetailsSession() { Close(); }

    explicit operator bool() const { return open_; }

    // The first failure among the calls that give everything back; S_OK for a session closed before.
    HRESULT Close()
    {
        if (!std::exchange(open_, false))
            return S_OK;
        const auto close = detail::ServicingFunction<HRESULT WINAPI(UINT)>("DismCloseSession");
        const auto shutdown = detail::ServicingFunction<HRESULT WINAPI()>("DismShutdown");
        const auto free = detail::ServicingFunction<HRESULT WINAPI(void*)>("DismDelete");
        if (close == nullptr || shutdown == nullptr || free == nullptr)
            return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
        HRESULT first = S_OK;
        const auto note = [&first](HRESULT result) {
            if (SUCCEEDED(first) && FAILED(result))
                first = result;
        };
        for (void* const records : {devices_, package_})
            if (records != nullptr)
                note(free(records));
        note(close(session_));
        note(shutdown());
        return first;
    }

  private:
    bool open_ = false;
    UINT session_ = 0;
    void* devices_ = nullptr;
    void* package_ = nullptr;
};

} // namespace kestro

#endif
