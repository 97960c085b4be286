// recorded_writes.cpp - what work does to the disk, one step after the other.
#include "recorded_writes.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <map>
#include <optional>

namespace kestro::test {
namespace {

namespace fs = std::filesystem;
using Kind = DiskStep::Kind;

// A system call on its way in, as the step that it is when it succeeds.
class Call {
  public:
    Call(pid_t process, const __ptrace_syscall_info& info)
        : process_(process), args_(info.entry.args)
    {
    }
    std::optional<DiskStep> Step(unsigned long long number) const
    {
        switch (number) {
        case SYS_openat:
            return Open();
        case SYS_write:
            return Write(Position());
        case SYS_pwrite64:
            return Write(args_[3]);
        case SYS_ftruncate:
            return DiskStep{Kind::Cut, FileOf(args_[0]), "", args_[1], ""};
        case SYS_rename:
            return DiskStep{Kind::Rename, Text(args_[0]), Text(args_[1]), 0, ""};
        case SYS_unlink:
            return DiskStep{Kind::Remove, Text(args_[0]), "", 0, ""};
        case SYS_fsync:
        case SYS_fdatasync: {
            const std::string path = FileOf(args_[0]);
            return DiskStep{fs::is_directory(path) ? Kind::SyncFolder : Kind::Sync, path, "", 0,
                            ""};
        }
        // What the steps have no words for must not pass unseen.
        case SYS_writev:
        case SYS_pwritev:
        case SYS_copy_file_range:
        case SYS_sendfile:
        case SYS_fallocate:
        case SYS_renameat:
        case SYS_renameat2:
            ADD_FAILURE() << "a recorded process made the system call " << number;
            return std::nullopt;
        default:
            return std::nullopt;
        }
    }

  private:
    std::string Bytes(unsigned long long at, std::size_t size) const
    {
        std::string bytes(size, '\0');
        const iovec here = {bytes.data(), size}, there = {reinterpret_cast<void*>(at), size};
        const ssize_t count = process_vm_readv(process_, &here, 1, &there, 1, 0);
        bytes.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return bytes;
    }
    std::string Text(unsigned long long at) const
    {
        const std::size_t page = 4096;
        std::string text;
        while (text.find('\0') == std::string::npos) {
            const std::string more = Bytes(at + text.size(), page - (at + text.size()) % page);
            if (more.empty())
                return {};
            text += more;
        }
        return text.c_str();
    }
    std::string FileOf(unsigned long long descriptor) const
    {
        std::error_code error;
        return fs::read_symlink(
            "/proc/" + std::to_string(process_) + "/fd/" + std::to_string(descriptor), error);
    }
    unsigned long long Position() const
    {
        std::ifstream info("/proc/" + std::to_string(process_) + "/fdinfo/" +
                           std::to_string(args_[0]));
        std::string word;
        unsigned long long position = 0;
        info >> word >> position;
        return position;
    }
    DiskStep Write(unsigned long long offset) const
    {
        return {Kind::Write, FileOf(args_[0]), "", offset, Bytes(args_[1], args_[2])};
    }
    std::optional<DiskStep> Open() const
    {
        const std::string path = Text(args_[1]);
        if (!fs::exists(path))
            return (args_[2] & O_CREAT) != 0 ? std::optional(DiskStep{Kind::Make, path, "", 0, ""})
                                             : std::nullopt;
        return (args_[2] & O_TRUNC) != 0 ? std::optional(DiskStep{Kind::Cut, path, "", 0, ""})
                                         : std::nullopt;
    }

    pid_t process_;
    const decltype(__ptrace_syscall_info::entry.args)& args_;
};

// Of each thread the call that it is in.
using Pending = std::map<pid_t, DiskStep>;

void Follow(pid_t thread, Pending& pending, std::vector<DiskStep>& steps, const std::string& folder)
{
    __ptrace_syscall_info info = {};
    ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
        if (const auto step = Call(thread, info).Step(info.entry.nr);
            step && step->path.starts_with(folder))
            pending.insert_or_assign(thread, *step);
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT && pending.count(thread) != 0) {
        DiskStep step = pending.at(thread);
        pending.erase(thread);
        if (info.exit.is_error)
            return;
        if (step.kind == Kind::Write)
            step.data.resize(static_cast<std::size_t>(info.exit.rval));
        steps.push_back(std::move(step));
    }
}

} // namespace

std::vector<DiskStep> RunAndRecord(const std::function<void()>& work, const fs::path& folder)
{
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACECLONE);
    std::vector<DiskStep> steps;
    Pending pending;
    for (pid_t thread = child;;) {
        ptrace(PTRACE_SYSCALL, thread, nullptr, nullptr);
        thread = waitpid(-1, &status, __WALL);
        if (thread == child && !WIFSTOPPED(status)) {
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
            return steps;
        }
        if (WIFSTOPPED(status) && WSTOPSIG(status) == (SIGTRAP | 0x80))
            Follow(thread, pending, steps, folder.string());
    }
}

} // namespace kestro::test
