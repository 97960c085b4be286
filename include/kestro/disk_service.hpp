// disk_service.hpp - the Virtual Disk Service itself: whether it can be had, and whether a disk is clean.
#ifndef KESTRO_DISK_SERVICE_HPP
#define KESTRO_DISK_SERVICE_HPP

#include "disk_interfaces.hpp"
#include "report.hpp"

#include <chrono>
#include <cstdint>
#include <cwchar>
#include <optional>
#include <string>
#include <thread>

#include <windows.h>

#include <winsvc.h>

namespace kestro {

// How long the service may take to become ready; on a machine with many disks that is a while.
constexpr std::chrono::milliseconds kDiskServicePatience{60000};

constexpr std::int32_t kDiskPartiallyCleaned = 0x0004241A; // a success code
constexpr std::int32_t kDiskNotEmpty = static_cast<std::int32_t>(0x80042414);

namespace detail::vds {

// What the service manager knows: that there is no such service, or that nobody may start it.
inline std::optional<Failure> RefusedByManager()
{
    SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    if (manager == nullptr)
        return {};
    std::optional<Failure> failure;
    SC_HANDLE service = OpenServiceW(manager, L"vds", SERVICE_QUERY_CONFIG);
    if (service == nullptr && GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST)
        failure =
            Failure{"OpenService",
                    static_cast<std::int32_t>(HRESULT_FROM_WIN32(ERROR_SERVICE_DOES_NOT_EXIST))};
    alignas(QUERY_SERVICE_CONFIGW) BYTE bytes[8192];
    auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes);
    DWORD needed = 0;
    if (service != nullptr && QueryServiceConfigW(service, config, sizeof bytes, &needed) &&
        config->dwStartType == SERVICE_DISABLED)
        failure = Failure{"QueryServiceConfig",
                          static_cast<std::int32_t>(HRESULT_FROM_WIN32(ERROR_SERVICE_DISABLED))};
    if (service != nullptr)
        CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return failure;
}

// The disk's partition style; nothing without such a disk.
inline std::optional<DWORD> StyleOf(const std::wstring& name)
{
    std::optional<DWORD> style;
    const auto service = ReadyService();
    EachDisk(*service, [&](Disk& disk, const Place&) {
        DiskProperties properties = {};
        if (FAILED(disk.GetProperties(&properties)))
            return true;
        // As the disk functions match names.
        if (properties.name != nullptr && _wcsnicmp(name.c_str(), properties.name, 40) == 0)
            style = properties.partitionStyle;
        for (wchar_t** text : {&properties.address, &properties.name, &properties.friendlyName,
                               &properties.adaptorName, &properties.devicePath})
            Taken(*text);
        return !style;
    });
    return style;
}

// Keeps the service from its being ready until this ends, and notices whether it died meanwhile: what a call was
// told then may be nothing but a zero.
class ServiceWatch {
  public:
    explicit ServiceWatch(std::chrono::milliseconds limit = kDiskServicePatience) : limit_(limit)
    {
        refusal_ = RefusedByManager();
        if (refusal_)
            return;
        thread_ = std::thread([state = state_] {
            Hold(*state);
            state->ended.set_value();
        });
        auto ready = state_->ready.get_future();
        if (ready.wait_for(limit_) == std::future_status::ready) {
            refusal_ = ready.get();
        } else {
            refusal_ = TimedOut();
            thread_.detach(); // it does not come back
        }
    }
    ~ServiceWatch()
    {
        if (!asked_)
            state_->ask.set_value();
        if (!thread_.joinable())
            return;
        if (state_->ended.get_future().wait_for(limit_) == std::future_status::ready)
            thread_.join();
        else
            thread_.detach();
    }
    ServiceWatch(const ServiceWatch&) = delete;
    ServiceWatch& operator=(const ServiceWatch&) = delete;

    // Why there is no service.
    const std::optional<Failure>& Refusal() const { return refusal_; }
    // Once: what tells that it is not the same any more.
    std::optional<Failure> Lost() const
    {
        asked_ = true;
        state_->ask.set_value();
        auto lost = state_->lost.get_future();
        return lost.wait_for(limit_) != std::future_status::ready ? TimedOut() : lost.get();
    }

  private:
    struct State {
        std::promise<std::optional<Failure>> ready, lost;
        std::promise<void> ask, ended;
    };

    static std::optional<Failure> TimedOut()
    {
        return Failure{"IVdsService::WaitForServiceReady",
                       static_cast<std::int32_t>(HRESULT_FROM_WIN32(ERROR_TIMEOUT))};
    }

    // On a thread with COM of its own.
    static void Hold(State& state)
    {
        const HRESULT initialised = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        if (FAILED(initialised)) {
            state.ready.set_value(Failure{"CoInitializeEx", initialised});
            return;
        }
        try {
            const auto service = ReadyService();
            state.ready.set_value({});
            state.ask.get_future().wait();
            const HRESULT answer = service->IsServiceReady();
            state.lost.set_value(FAILED(answer)
                                     ? std::optional(Failure{"IVdsService::IsServiceReady", answer})
                                     : std::nullopt);
        } catch (const Failure& failure) {
            state.ready.set_value(failure);
        }
        CoUninitialize();
    }

    std::chrono::milliseconds limit_;
    std::shared_ptr<State> state_ = std::make_shared<State>();
    std::thread thread_;
    std::optional<Failure> refusal_;
    mutable bool asked_ = false;
};

} // namespace detail::vds

// Has the service started, where it is not, and waits until it is ready, as its documentation asks of its
// clients; the disk functions themselves do not. A failure says why there is none.
inline std::optional<Failure>
AwaitDiskService(std::chrono::milliseconds limit = kDiskServicePatience)
{
    if (auto refused = detail::vds::RefusedByManager())
        return refused;
    try {
        detail::vds::OnThread<bool>(limit, [] { return detail::vds::ReadyService() != nullptr; });
        return {};
    } catch (const Failure& failure) {
        return failure;
    }
}

// Looks at a disk that was cleaned: a service that died meanwhile may have left the impression of a success.
// What is wrong, or nothing. The service may take a moment to see its own work.
inline std::optional<Failure> CheckCleaned(const std::wstring& disk,
                                           std::chrono::milliseconds limit = kDiskServicePatience)
{
    constexpr int looks = 25;
    constexpr std::chrono::milliseconds pause{200};
    try {
        for (int look = 1;; ++look) {
            const auto style = detail::vds::OnThread<std::optional<DWORD>>(
                limit, [disk] { return detail::vds::StyleOf(disk); });
            if (style == 0u)
                return {};
            if (look == looks)
                return Failure{"CleanDisk",
                               style ? kDiskNotEmpty : static_cast<std::int32_t>(0x80042405)};
            std::this_thread::sleep_for(pause);
        }
    } catch (const Failure& failure) {
        return failure;
    }
}

} // namespace kestro

#endif
