// call.cpp - how the host makes a call.
#include "call.h"

#include "interrupt.h"
#include "paths.h"
#include "usage_error.h"

#include <cstdio>
#include <filesystem>
#include <future>
#include <thread>

#include <fcntl.h>
#include <io.h>

namespace kestro::host {
namespace {

using Clock = std::chrono::steady_clock;

// A file that is new and empty: a name made of the process's number alone may be one that a killed process
// of the same number has left behind, and its keys would read like this call's.
std::wstring TemporaryResult()
{
    wchar_t path[MAX_PATH];
    const std::wstring folder = std::filesystem::temp_directory_path().wstring();
    if (GetTempFileNameW(folder.c_str(), L"kes", 0, path) == 0)
        throw UsageError("no temporary result file can be made in " + Shown(folder));
    return path;
}

// Whether the file can be written is seen before the call: afterwards nobody could tell what became of it.
void RequireWritable(const std::wstring& path)
{
    void* const file = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        throw UsageError("the result file " + Shown(path) + " cannot be written (error " +
                         std::to_string(GetLastError()) + ")");
    CloseHandle(file);
}

std::filesystem::path NumberedResult(const std::wstring& named, int number)
{
    std::filesystem::path path = std::filesystem::absolute(named);
    if (number > 1)
        path.replace_filename(path.stem().wstring() + L"-" + std::to_wstring(number) +
                              path.extension().wstring());
    return path;
}

// Keys of an earlier call would stay in the file and read like this call's.
void RequireNew(const std::filesystem::path& path)
{
    std::error_code error;
    if (std::filesystem::exists(path, error) && std::filesystem::file_size(path, error) != 0)
        throw UsageError("the result file " + Shown(path.wstring()) +
                         " exists already; name a new one, so that nothing in it is lost");
}

void RequireAnsi(const std::wstring& path, Form form)
{
    bool lossy = false;
    detail::Narrow(path, &lossy);
    if (lossy && form == Form::Narrow)
        throw UsageError("the result file's path does not fit the ANSI code page: " + Shown(path) +
                         "; name another one with --result, or use --wide where there is a W form");
}

// While this lives, what goes to standard output is dropped: the library prints there what its ResultFile
// says too, and the host's own output must stay what it is.
class DivertedOutput {
  public:
    DivertedOutput() : saved_(_dup(1))
    {
        std::fflush(stdout);
        const int nowhere = _open("NUL", _O_WRONLY);
        if (nowhere >= 0) {
            _dup2(nowhere, 1);
            _close(nowhere);
        }
    }
    ~DivertedOutput()
    {
        std::fflush(stdout);
        if (saved_ >= 0) {
            _dup2(saved_, 1);
            _close(saved_);
        }
    }
    DivertedOutput(const DivertedOutput&) = delete;
    DivertedOutput& operator=(const DivertedOutput&) = delete;

  private:
    int saved_;
};

} // namespace

ResultPath::ResultPath(const std::wstring& named, int number, Form form) : temporary_(named.empty())
{
    if (temporary_) {
        path_ = TemporaryResult();
        try {
            RequireAnsi(path_, form);
        } catch (...) {
            DeleteFileW(path_.c_str());
            throw;
        }
        return;
    }
    const std::filesystem::path path = NumberedResult(named, number);
    path_ = path.wstring();
    RequireNew(path);
    std::error_code error;
    if (!std::filesystem::is_directory(path.parent_path(), error))
        throw UsageError("there is no folder " + Shown(path.parent_path().wstring()) +
                         " for the result file");
    RequireAnsi(path_, form);
    RequireWritable(path_);
}

ResultPath::~ResultPath()
{
    if (temporary_)
        DeleteFileW(path_.c_str());
}

void RequireNewResults(const std::wstring& named, int calls)
{
    for (int number = 1; !named.empty() && number <= calls; ++number)
        RequireNew(NumberedResult(named, number));
}

Runner FollowingRunner(Follower follower)
{
    return [follower = std::move(follower)](const std::function<void()>& call,
                                            const std::wstring& result) {
        int shown = 1; // a call's first line is number 2
        const auto start = Clock::now();
        const auto since = [&] {
            return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        };
        const auto follow = [&] {
            const auto report = ReadResultFile(result);
            if (!report)
                return;
            for (const LogLine& line : report->log)
                if (line.number > shown) {
                    shown = line.number;
                    follower(&line, since());
                }
        };

        const InterruptGuard guard;
        const DivertedOutput diverted;
        std::packaged_task<void()> task(call);
        std::future<void> done = task.get_future();
        std::thread worker(std::move(task));
        while (done.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
            follow();
            follower(nullptr, since());
        }
        worker.join();
        follow();
        done.get(); // an exception that left the library
    };
}

} // namespace kestro::host
