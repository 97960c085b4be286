// program.cpp - one program, run to its end.
#include "program.h"

#include <memory>
#include <stdexcept>
#include <thread>

#include <windows.h>

namespace kestro::check {
namespace {

struct Close {
    void operator()(void* handle) const { CloseHandle(handle); }
};
using Owned = std::unique_ptr<void, Close>;

struct Pipe {
    Pipe()
    {
        SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
        HANDLE ends[2];
        if (!CreatePipe(&ends[0], &ends[1], &inherited, 0))
            throw std::runtime_error("no pipe, error " + std::to_string(GetLastError()));
        read.reset(ends[0]);
        write.reset(ends[1]);
        SetHandleInformation(ends[0], HANDLE_FLAG_INHERIT, 0);
    }
    Owned read, write;
};

std::string ReadAll(HANDLE pipe)
{
    std::string all;
    char block[4096];
    DWORD length = 0;
    while (ReadFile(pipe, block, sizeof block, &length, nullptr) && length > 0)
        all.append(block, length);
    return all;
}

} // namespace

Run RunProgram(const std::filesystem::path& program, const std::wstring& arguments,
               const std::filesystem::path& folder, std::uint32_t seconds)
{
    Pipe pipe;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = INVALID_HANDLE_VALUE;
    startup.hStdOutput = startup.hStdError = pipe.write.get();
    std::wstring line = L'"' + program.wstring() + L"\" " + arguments;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr,
                        folder.c_str(), &startup, &process))
        throw std::runtime_error("cannot start " + program.filename().string() + ", error " +
                                 std::to_string(GetLastError()));
    const Owned started(process.hProcess);
    CloseHandle(process.hThread);
    pipe.write.reset();

    Run run;
    std::thread reader([&] { run.output = ReadAll(pipe.read.get()); });
    run.ended = WaitForSingleObject(process.hProcess, seconds * 1000) == WAIT_OBJECT_0;
    if (!run.ended)
        TerminateProcess(process.hProcess, 1);
    WaitForSingleObject(process.hProcess, INFINITE);
    reader.join();
    DWORD code = 0;
    GetExitCodeProcess(process.hProcess, &code);
    run.exitCode = code;
    return run;
}

} // namespace kestro::check
