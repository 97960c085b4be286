// call.cpp - one call of the library, made, followed and read back.
#include "call.h"

#include "usage_error.h"

#include <atomic>
#include <cstdio>
#include <future>
#include <thread>

#include <fcntl.h>
#include <io.h>
#include <objbase.h>

namespace kestro::host {
namespace {

using Clock = std::chrono::steady_clock;

std::wstring TemporaryFile(const wchar_t* purpose)
{
    static std::atomic<int> count = 0;
    wchar_t folder[MAX_PATH + 1] = {};
    if (GetTempPathW(MAX_PATH, folder) == 0)
        throw LoadError("there is no folder for temporary files", GetLastError());
    return std::wstring(folder) + L"kestro-" + purpose + L"-" +
           std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++count);
}

// While this lives, standard output goes to a file: the library prints there, and the host's own output
// must stay what it is.
class CapturedOutput {
  public:
    CapturedOutput() : path_(TemporaryFile(L"console")), saved_(_dup(1))
    {
        std::fflush(stdout);
        // As text: a binary file would take the wide lines as UTF-16 among the narrow ones.
        const int file = _wopen(path_.c_str(), _O_CREAT | _O_TRUNC | _O_WRONLY | _O_TEXT, 0600);
        if (file >= 0) {
            _dup2(file, 1);
            _close(file);
        }
    }
    ~CapturedOutput() { Restore(); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string Take()
    {
        Restore();
        std::string bytes;
        if (std::FILE* const file = _wfopen(path_.c_str(), L"rb")) {
            char block[4096];
            for (std::size_t count; (count = std::fread(block, 1, sizeof block, file)) != 0;)
                bytes.append(block, count);
            std::fclose(file);
        }
        DeleteFileW(path_.c_str());
        std::erase(bytes, '\r');
        return detail::Utf8(detail::Wide(bytes, CP_ACP));
    }

  private:
    void Restore()
    {
        if (saved_ < 0)
            return;
        std::fflush(stdout);
        _dup2(saved_, 1);
        _close(saved_);
        saved_ = -1;
    }

    std::wstring path_;
    int saved_;
};

} // namespace

ResultPath::ResultPath(const std::wstring& named, int number) : temporary_(named.empty())
{
    if (temporary_) {
        path_ = TemporaryFile(L"result") + L".ini";
        return;
    }
    std::filesystem::path path = std::filesystem::absolute(named);
    if (number > 1)
        path.replace_filename(path.stem().wstring() + L"-" + std::to_wstring(number) +
                              path.extension().wstring());
    path_ = path.wstring();
    // Keys of an earlier call would stay in the file and read like this call's.
    std::error_code error;
    if (std::filesystem::exists(path, error) && std::filesystem::file_size(path, error) != 0)
        throw UsageError("the result file " + detail::Utf8(path_) +
                         " exists already; name a new one, so that nothing in it is lost");
    if (!std::filesystem::is_directory(path.parent_path(), error))
        throw UsageError("there is no folder " + detail::Utf8(path.parent_path().wstring()) +
                         " for the result file");
}

ResultPath::~ResultPath()
{
    if (temporary_)
        DeleteFileW(path_.c_str());
}

std::string ResultPath::Narrow() const
{
    BOOL lossy = FALSE;
    const int size = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, path_.c_str(), -1, nullptr,
                                         0, nullptr, &lossy);
    std::string narrow(static_cast<std::size_t>(size > 0 ? size : 1), '\0');
    WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, path_.c_str(), -1, narrow.data(), size,
                        nullptr, &lossy);
    if (lossy)
        throw UsageError("the result file's path does not fit the ANSI code page; use --wide");
    narrow.pop_back();
    return narrow;
}

CallResult RunCall(const ResultPath& path, const std::function<std::int32_t()>& call,
                   const Follower& follower)
{
    CallResult result;
    int shown = 1; // a call's first line is number 2
    const auto start = Clock::now();
    const auto since = [&] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    };
    const auto follow = [&] {
        const auto report = ReadResultFile(path.Wide());
        if (!report)
            return;
        for (const LogLine& line : report->log)
            if (line.number > shown) {
                shown = line.number;
                follower(line, since());
            }
    };

    CapturedOutput output;
    std::packaged_task<void()> task([&] {
        // The disk functions consume an initialisation on their normal exits only; the thread's end
        // takes back what is left.
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        SetLastError(ERROR_SUCCESS);
        result.returned = call();
        result.lastError = GetLastError();
    });
    std::future<void> done = task.get_future();
    std::thread worker(std::move(task));
    while (done.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready)
        follow();
    worker.join();
    result.elapsed = since();
    result.console = output.Take();
    follow();
    done.get(); // an exception that left the library
    if (auto report = ReadResultFile(path.Wide()))
        result.report = std::move(*report);
    return result;
}

} // namespace kestro::host
