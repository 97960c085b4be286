// servicing.hpp - the servicing API itself, for what no function of Kestro.dll offers: which images a file
// holds, what is mounted, what is known of a driver package. Everything that is opened is closed with its
// object, and every record given back.
#ifndef KESTRO_SERVICING_HPP
#define KESTRO_SERVICING_HPP

#include "library.hpp"
#include "records.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

namespace kestro {

// A function of the servicing API that failed.
class ServicingError : public std::runtime_error {
  public:
    ServicingError(std::string function, std::int32_t code, const std::string& message)
        : std::runtime_error(message.empty() ? function + " failed" : message),
          function_(std::move(function)), code_(code)
    {
    }
    const std::string& Function() const { return function_; }
    std::int32_t Code() const { return code_; }

  private:
    std::string function_;
    std::int32_t code_;
};

struct DriverDetails {
    PackageDetails package;
    std::vector<DeviceDetails> devices;
};

// How a long call tells how far it has come, and an event that ends it; either may be left out.
struct Watch {
    std::function<void(std::uint32_t current, std::uint32_t total)> progress;
    HANDLE cancel = nullptr;
};

namespace detail {

// DismApi.dll from the system's own folder. It stays loaded: Wine cannot load its native half twice.
inline FARPROC ServicingFunction(const char* name)
{
    static const HMODULE api =
        LoadLibraryExW(L"DismApi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (api == nullptr)
        throw LoadError("cannot load DismApi.dll", GetLastError());
    const FARPROC function = GetProcAddress(api, name);
    if (function == nullptr)
        throw LoadError(std::string("DismApi.dll has no function ") + name, GetLastError());
    return function;
}

template <class... Parameters, class... Arguments>
HRESULT ServicingResult(const char* name, Arguments... arguments)
{
    using Function = HRESULT WINAPI(Parameters...);
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(ServicingFunction(name)))(
        arguments...);
}

// Records of the servicing API, given back with the object.
template <class Record>
class Records {
  public:
    Records() = default;
    ~Records()
    {
        if (records_ != nullptr)
            ServicingResult<void*>("DismDelete", static_cast<void*>(records_));
    }
    Records(const Records&) = delete;
    Records& operator=(const Records&) = delete;

    Record** To() { return &records_; }
    UINT* CountTo() { return &count_; }
    const Record* begin() const { return records_; }
    const Record* end() const { return records_ + (records_ != nullptr ? count_ : 0); }

  private:
    Record* records_ = nullptr;
    UINT count_ = 0;
};

inline std::string LastServicingMessage()
{
    Records<TextRecord> message;
    if (FAILED(ServicingResult<TextRecord**>("DismGetLastErrorMessage", message.To())) ||
        *message.To() == nullptr)
        return {};
    return TextOf((*message.To())->value);
}

template <class... Parameters, class... Arguments>
void MustServe(const char* name, Arguments... arguments)
{
    const HRESULT result = ServicingResult<Parameters...>(name, arguments...);
    if (FAILED(result))
        throw ServicingError(name, result, LastServicingMessage());
}

inline void WINAPI TellProgress(UINT current, UINT total, void* watch)
{
    static_cast<const Watch*>(watch)->progress(current, total);
}

using ProgressCallback = void(WINAPI*)(UINT, UINT, void*);

inline ProgressCallback CallbackOf(const Watch& watch)
{
    return watch.progress ? &TellProgress : nullptr;
}

template <class Record>
auto AllDetails(const Records<Record>& records)
{
    std::vector<decltype(DetailsOf(*records.begin()))> all;
    for (const Record& record : records)
        all.push_back(DetailsOf(record));
    return all;
}

} // namespace detail

// The API, initialised for as long as this lives: one at a time in a process, and none while a function of
// Kestro.dll works. Functions throw ServicingError, or LoadError when the API is not there.
class Servicing {
  public:
    explicit Servicing(const std::wstring& log)
    {
        constexpr int everything = 2;
        detail::MustServe<int, const wchar_t*, const wchar_t*>(
            "DismInitialize", everything, log.empty() ? nullptr : log.c_str(), nullptr);
    }
    ~Servicing() { detail::ServicingResult<>("DismShutdown"); }
    Servicing(const Servicing&) = delete;
    Servicing& operator=(const Servicing&) = delete;

    std::vector<ImageDetails> Images(const std::wstring& file) const
    {
        detail::Records<detail::ImageRecord> records;
        detail::MustServe<const wchar_t*, detail::ImageRecord**, UINT*>(
            "DismGetImageInfo", file.c_str(), records.To(), records.CountTo());
        return detail::AllDetails(records);
    }

    std::vector<MountDetails> Mounts() const
    {
        detail::Records<detail::MountRecord> records;
        detail::MustServe<detail::MountRecord**, UINT*>("DismGetMountedImageInfo", records.To(),
                                                        records.CountTo());
        return detail::AllDetails(records);
    }

    void Mount(const std::wstring& file, const std::wstring& directory, std::uint32_t index,
               bool readOnly, const Watch& watch = {}) const
    {
        detail::MustServe<const wchar_t*, const wchar_t*, UINT, const wchar_t*, int, DWORD, HANDLE,
                          detail::ProgressCallback, void*>(
            "DismMountImage", file.c_str(), directory.c_str(), index, nullptr, 0, DWORD{readOnly},
            watch.cancel, detail::CallbackOf(watch), const_cast<Watch*>(&watch));
    }

    void Unmount(const std::wstring& directory, bool saveChanges, const Watch& watch = {}) const
    {
        detail::MustServe<const wchar_t*, DWORD, HANDLE, detail::ProgressCallback, void*>(
            "DismUnmountImage", directory.c_str(), DWORD{!saveChanges}, watch.cancel,
            detail::CallbackOf(watch), const_cast<Watch*>(&watch));
    }

    void Remount(const std::wstring& directory) const
    {
        detail::MustServe<const wchar_t*>("DismRemountImage", directory.c_str());
    }

    // Clears away what is left of mounts that are broken.
    void CleanUpMounts() const { detail::MustServe<>("DismCleanupMountpoints"); }
};

// A servicing session on an image's root directory.
class ServicingSession {
  public:
    ServicingSession(const Servicing&, const std::wstring& image)
    {
        detail::MustServe<const wchar_t*, const wchar_t*, const wchar_t*, UINT*>(
            "DismOpenSession", image.c_str(), nullptr, nullptr, &session_);
    }
    ~ServicingSession() { detail::ServicingResult<UINT>("DismCloseSession", session_); }
    ServicingSession(const ServicingSession&) = delete;
    ServicingSession& operator=(const ServicingSession&) = delete;

    // The third-party packages; with `all` also those that came with Windows.
    std::vector<PackageDetails> Packages(bool all) const
    {
        detail::Records<detail::PackageRecord> records;
        detail::MustServe<UINT, BOOL, detail::PackageRecord**, UINT*>(
            "DismGetDrivers", session_, all, records.To(), records.CountTo());
        return detail::AllDetails(records);
    }

    // A published name or the path of an INF.
    DriverDetails Driver(const std::wstring& driver) const
    {
        detail::Records<detail::DeviceRecord> devices;
        detail::Records<detail::PackageRecord> package;
        detail::MustServe<UINT, const wchar_t*, detail::DeviceRecord**, UINT*,
                          detail::PackageRecord**>("DismGetDriverInfo", session_, driver.c_str(),
                                                   devices.To(), devices.CountTo(), package.To());
        DriverDetails details;
        if (*package.To() != nullptr)
            details.package = detail::DetailsOf(**package.To());
        details.devices = detail::AllDetails(devices);
        return details;
    }

    // Nothing of it is saved before a commit.
    void Add(const std::wstring& inf) const
    {
        detail::MustServe<UINT, const wchar_t*, BOOL>("DismAddDriver", session_, inf.c_str(),
                                                      FALSE);
    }

  private:
    UINT session_ = 0;
};

} // namespace kestro

#endif
