// clean_operation.cpp - a clean that runs on a thread of its own.
#include "clean_operation.h"

#include "file_disk.h"
#include "object_parts.h"
#include "operations.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

namespace kestro::vds {
namespace {

std::wstring Wide(const char* text)
{
    return std::wstring(text, text + strlen(text));
}

// One operation at a time on each disk, also while an earlier process of the service brings one to its
// end. The system lets go of a claim whose process dies.
class DiskClaim {
  public:
    static std::unique_ptr<DiskClaim> Take(const std::wstring& section)
    {
        std::wstring name = L"Kestro disk " + section;
        std::replace(name.begin(), name.end(), L'\\', L'/');
        const HANDLE claim = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
        if (claim != nullptr && GetLastError() != ERROR_ALREADY_EXISTS)
            return std::unique_ptr<DiskClaim>(new DiskClaim(claim));
        if (claim != nullptr)
            CloseHandle(claim);
        return nullptr;
    }
    ~DiskClaim() { CloseHandle(claim_); }
    DiskClaim(const DiskClaim&) = delete;
    DiskClaim& operator=(const DiskClaim&) = delete;

  private:
    explicit DiskClaim(HANDLE claim) : claim_(claim) {}
    HANDLE claim_;
};

class CleanAsync final : public ComObject<IVdsAsync> {
  public:
    CleanAsync() : done_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

    // The thread owns a reference for as long as it runs.
    void Start(const DiskEntry& disk, bool full, std::unique_ptr<FileDisk> file,
               std::unique_ptr<DiskClaim> claim)
    {
        AddRef();
        std::thread([this, disk, full, file = std::move(file), claim = std::move(claim),
                     running = std::make_unique<RunningOperation>()]() mutable {
            Run(disk, full, *file);
            file.reset();
            claim.reset();
            SetEvent(done_);
            Release();
        }).detach();
    }

    HRESULT STDMETHODCALLTYPE Cancel() override
    {
        cancelled_ = true;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Wait(HRESULT* result, VDS_ASYNC_OUTPUT* output) override
    {
        if (result == nullptr || output == nullptr)
            return E_INVALIDARG;
        WaitForSingleObject(done_, INFINITE);
        *result = result_;
        *output = {};
        output->type = VDS_ASYNCOUT_CLEAN;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryStatus(HRESULT* result, ULONG* percent) override
    {
        if (result == nullptr || percent == nullptr)
            return E_INVALIDARG;
        const bool done = WaitForSingleObject(done_, 0) == WAIT_OBJECT_0;
        *result = done ? result_.load() : code::operation_pending;
        *percent = percent_;
        return S_OK;
    }

  private:
    ~CleanAsync() override { CloseHandle(done_); }

    void Run(const DiskEntry& disk, bool full, FileDisk& file)
    {
        Log(L"cleaning " + disk.name + (full ? L", every sector" : L""));
        try {
            result_ = Clean(file, full, [&](unsigned percent) {
                percent_ = percent;
                return !cancelled_;
            });
            Log(disk.name + (result_ == code::ok                  ? L" is clean"
                             : result_ == code::partially_cleaned ? L" is clean in part"
                                                                  : L": the clean was cancelled"));
        } catch (const std::exception& error) {
            result_ = code::io_error;
            Log(disk.name + L": " + Wide(error.what()));
        }
    }

    HANDLE done_;
    std::atomic<HRESULT> result_ = S_OK;
    std::atomic<ULONG> percent_ = 0;
    std::atomic<bool> cancelled_ = false;
};

} // namespace

HRESULT BeginClean(const DiskEntry& disk, const CleanFlags& flags, IVdsAsync** async)
{
    *async = nullptr;
    // The state counts as it is now, not as it was when the disk was looked up.
    const auto current = ReadDisk(disk.section);
    if (!current)
        return code::object_not_found;
    auto claim = DiskClaim::Take(disk.section);
    if (!claim)
        return code::being_cleaned;
    try {
        auto file = std::make_unique<FileDisk>(
            *current, current->state.readOnly ? FileDisk::Access::Read : FileDisk::Access::Write);
        const HRESULT refused = MayClean(current->state, ReadPartitionTable(*file), flags);
        if (refused != code::ok)
            return refused;
        auto* const operation = New<CleanAsync>();
        operation->Start(*current, flags.full, std::move(file), std::move(claim));
        *async = operation;
        return S_OK;
    } catch (const DiskError& error) {
        Log(disk.name + L": " + Wide(error.what()));
        return code::io_error;
    }
}

} // namespace kestro::vds
