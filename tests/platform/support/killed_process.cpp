// killed_process.cpp - work that is killed at a chosen system call.
#include "killed_process.h"

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <set>

namespace kestro::test {

static bool ChangesTheDisk(unsigned long long call)
{
    static const std::set<unsigned long long> calls = {
        SYS_write,     SYS_pwrite64, SYS_writev,  SYS_pwritev,   SYS_copy_file_range,
        SYS_rename,    SYS_unlink,   SYS_rmdir,   SYS_mkdir,     SYS_unlinkat,
        SYS_fsync,     SYS_syncfs,   SYS_symlink, SYS_ftruncate, SYS_sendfile,
        SYS_mkdirat,   SYS_link,     SYS_linkat,  SYS_utimensat, SYS_fdatasync,
        SYS_renameat2, SYS_mount,    SYS_umount2};
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
    ptrace(PTRACE_SETOPTIONS, child, nullptr,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACECLONE);
    // Each of the child's threads stops on its own.
    pid_t thread = child;
    bool killed = false;
    for (int seen = 0;;) {
        ptrace(PTRACE_SYSCALL, thread, nullptr, nullptr);
        thread = waitpid(-1, &status, __WALL);
        if (thread == child && !WIFSTOPPED(status))
            return killed;
        if (killed || !WIFSTOPPED(status) || WSTOPSIG(status) != (SIGTRAP | 0x80))
            continue;
        __ptrace_syscall_info call = {};
        ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof call, &call);
        if (call.op == PTRACE_SYSCALL_INFO_ENTRY && ChangesTheDisk(call.entry.nr) &&
            ++seen == change) {
            kill(child, SIGKILL);
            killed = true;
        }
    }
}

} // namespace kestro::test
