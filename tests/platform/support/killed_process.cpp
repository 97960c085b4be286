// killed_process.cpp - work that is killed at a chosen system call.
#include "killed_process.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <set>

namespace kestro::test {

static bool ChangesTheDisk(unsigned long long call)
{
    static const std::set<unsigned long long> calls = {
        SYS_write,   SYS_pwrite64, SYS_writev,    SYS_pwritev,   SYS_copy_file_range,
        SYS_rename,  SYS_unlink,   SYS_rmdir,     SYS_mkdir,     SYS_unlinkat,
        SYS_fsync,   SYS_syncfs,   SYS_symlink,   SYS_ftruncate, SYS_sendfile,
        SYS_mkdirat, SYS_link,     SYS_utimensat, SYS_fdatasync, SYS_renameat2};
    return calls.count(call) != 0;
}

bool RunAndKill(const std::function<void()>& work, int change)
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
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    bool entering = true;
    for (int seen = 0;;) {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
        if (WIFEXITED(status) || WIFSIGNALED(status))
            return false;
        if (!WIFSTOPPED(status) || WSTOPSIG(status) != (SIGTRAP | 0x80))
            continue;
        user_regs_struct registers = {};
        ptrace(PTRACE_GETREGS, child, nullptr, &registers);
        if (entering && ChangesTheDisk(registers.orig_rax) && ++seen == change) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            return true;
        }
        entering = !entering;
    }
}

} // namespace kestro::test
