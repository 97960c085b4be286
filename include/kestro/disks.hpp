// disks.hpp - what a disk call needs around it, and what its values and log lines mean.
#ifndef KESTRO_DISKS_HPP
#define KESTRO_DISKS_HPP

#include "outcome.hpp"

#include <cstdint>
#include <optional>
#include <string_view>
#include <thread>

#include <objbase.h>
#include <windows.h>

namespace kestro {

struct DiskOutcome : Outcome {
    bool found = true;
};

struct CleanOptions {
    bool force = false;    // also a disk with data volumes
    bool forceOem = false; // also a disk with an OEM partition
    bool full = false;     // overwrite every sector
};

namespace detail {

// The number in the line after the last one that starts with the label.
inline std::optional<std::int32_t> LastNumberAfter(const Report& report, std::string_view label)
{
    for (std::size_t i = report.log.size(); i-- > 1;)
        if (report.log[i - 1].text.starts_with(label))
            return Number(report.log[i].text);
    return {};
}

// A disk call needs COM on its thread and gives back one of that thread's initialisations on some of its ways
// out. So it gets a thread of its own, and nothing of the caller's can be consumed.
template <class Call>
std::int32_t CallWithComOfItsOwn(const Call& call)
{
    std::int32_t returned = 0;
    std::thread([&] {
        returned = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        if (FAILED(returned))
            return;
        returned = call();
        APTTYPE type;
        APTTYPEQUALIFIER qualifier;
        // Left initialised, and not only lent by another thread.
        if (SUCCEEDED(CoGetApartmentType(&type, &qualifier)) &&
            qualifier != APTTYPEQUALIFIER_IMPLICIT_MTA)
            CoUninitialize();
    }).join();
    return returned;
}

// CleanDisk's value and log. 0 says failed as well as not found; a search that came to its end leaves S_FALSE
// behind.
inline void SetCleanOutcome(DiskOutcome& outcome)
{
    const auto last = LastNumberAfter(outcome.report, "Last HRESULT:");
    outcome.succeeded = outcome.returned == 1;
    outcome.found = outcome.succeeded || outcome.returned < 0 || last != S_FALSE;
    if (outcome.succeeded || !outcome.found)
        return;
    std::int32_t code = outcome.returned < 0 ? outcome.returned : last.value_or(0);
    if (code >= 0)
        code = LastNumberAfter(outcome.report, "CoCreateInstance HRESULT:").value_or(E_FAIL);
    outcome.failure = Failure{"CleanDisk", code};
}

} // namespace detail

} // namespace kestro

#endif
