// rights.cpp - what the serving process gives up before it answers the first request. From then on it
// can read and write what it holds open, and nothing else.
#include "serving.h"

#include <cap-ng.h>
#include <seccomp.h>
#include <sys/resource.h>

#include <cerrno>
#include <memory>

namespace kestro::imagefs {
namespace {

const int kNeeded[] = {
    // Requests, answers, the image file.
    SCMP_SYS(read), SCMP_SYS(readv), SCMP_SYS(pread64), SCMP_SYS(preadv), SCMP_SYS(write),
    SCMP_SYS(writev), SCMP_SYS(poll), SCMP_SYS(ppoll), SCMP_SYS(lseek), SCMP_SYS(fstat),
    SCMP_SYS(newfstatat), SCMP_SYS(close),
    // Memory, time, signals, the end.
    SCMP_SYS(brk), SCMP_SYS(mmap), SCMP_SYS(mremap), SCMP_SYS(munmap), SCMP_SYS(mprotect),
    SCMP_SYS(madvise), SCMP_SYS(futex), SCMP_SYS(sched_yield), SCMP_SYS(clock_gettime),
    SCMP_SYS(gettimeofday), SCMP_SYS(setitimer), SCMP_SYS(getrandom), SCMP_SYS(restart_syscall),
    SCMP_SYS(rt_sigaction), SCMP_SYS(rt_sigprocmask), SCMP_SYS(rt_sigreturn), SCMP_SYS(getpid),
    SCMP_SYS(gettid), SCMP_SYS(tgkill), SCMP_SYS(exit), SCMP_SYS(exit_group)};

bool AllowOnly()
{
    const std::unique_ptr<void, void (*)(scmp_filter_ctx)> filter(
        seccomp_init(SCMP_ACT_ERRNO(EPERM)), seccomp_release);
    if (!filter)
        return false;
    for (const int call : kNeeded)
        if (seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0) != 0)
            return false;
    return seccomp_load(filter.get()) == 0; // no new privileges come with it
}

} // namespace

bool GiveUpRights()
{
    const rlimit none = {};
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_FSIZE, &none);
    setrlimit(RLIMIT_NOFILE, &none);
    capng_clear(CAPNG_SELECT_BOTH);
    // A process that is nobody special has no bounding set to give up.
    if (capng_apply(CAPNG_SELECT_BOTH) != 0 && capng_apply(CAPNG_SELECT_CAPS) != 0)
        return false;
    return AllowOnly();
}

} // namespace kestro::imagefs
