// main.cpp - kestro-imagefs: shows an image of an image file through FUSE.
//
//   kestro-imagefs IMAGE INDEX SHOWN-AS MOUNT-POINT LOCK NAME UMASK [others | write STAGING]
//
// The program opens the image, mounts it on MOUNT-POINT and goes into the background; it returns when the
// image can be read, or says on its output why not. SHOWN-AS is the directory in which users see the
// image; NAME is the mount's name in lists of mounts. As long as LOCK is locked, somebody serves. With
// "others" all users may look into the mount point itself. With "write" it can be changed; new content waits
// in STAGING until libwim is told to save it.
#include "serving.h"

#include <wimlib.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace kestro::imagefs;

namespace {

// An image file that claims more than its size can hold gets no more memory than this.
void LimitMemory(const char* image)
{
    constexpr rlim_t atLeast = 512U << 20, perByte = 64;
    struct stat status = {};
    if (stat(image, &status) != 0)
        return; // opening it tells why
    const rlim_t wanted = atLeast + static_cast<rlim_t>(status.st_size) * perByte;
    rlimit limit = {};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = limit.rlim_max = wanted < limit.rlim_max ? wanted : limit.rlim_max;
    setrlimit(RLIMIT_AS, &limit);
}

// Held until this process ends. A lock of the process's own tells who holds it.
bool Lock(const char* path)
{
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    return file >= 0 && fcntl(file, F_SETLK, &lock) == 0;
}

int Fail(const char* what, const char* reason)
{
    std::fprintf(stderr, "%s: %s\n", what, reason);
    return EXIT_FAILURE;
}

// In the background process; returns when the image is no longer mounted.
int Serve(const char* image, int index, const char* lock, bool others, const char* staging)
{
    if (!Lock(lock))
        return Fail(lock, std::strerror(errno));
    const auto check = [](int error) {
        if (error != 0)
            Fail("libwim", wimlib_get_error_string(static_cast<wimlib_error_code>(error)));
        return error;
    };
    int error = check(wimlib_global_init(WIMLIB_INIT_FLAG_DEFAULT_CASE_SENSITIVE));
    if (error != 0)
        return error;
    WIMStruct* wim = nullptr;
    error = check(wimlib_open_wim(image,
                                  WIMLIB_OPEN_FLAG_ERROR_IF_SPLIT |
                                      (staging != nullptr ? WIMLIB_OPEN_FLAG_WRITE_ACCESS : 0),
                                  &wim));
    if (error != 0)
        return error;
    const int flags = WIMLIB_MOUNT_FLAG_STREAM_INTERFACE_NONE |
                      (others ? WIMLIB_MOUNT_FLAG_ALLOW_OTHER : 0) |
                      (staging != nullptr ? WIMLIB_MOUNT_FLAG_READWRITE : 0);
    error = check(wimlib_mount_image(wim, index, g_view.mountPoint.c_str(), flags, staging));
    wimlib_free(wim);
    return error;
}

// The background process writes what goes wrong into the pipe, and nothing more once it can be read from.
int WaitUntilServed(pid_t process, int pipe)
{
    std::string text;
    char block[1024];
    for (ssize_t count; (count = read(pipe, block, sizeof block)) > 0;)
        text.append(block, static_cast<std::size_t>(count));
    if (!text.empty() && text.back() == kServed)
        return EXIT_SUCCESS;
    std::fputs(text.c_str(), stdout);
    int status = 0;
    if (waitpid(process, &status, 0) != process || !WIFEXITED(status))
        return EXIT_FAILURE;
    return WEXITSTATUS(status) != 0 ? WEXITSTATUS(status) : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 8)
        return Fail(argv[0], "this program is started by the embedded servicing API");
    g_view.sharesLock = fcntl(kMountLock, F_GETFD) >= 0;
    const char* const image = argv[1];
    g_view.shownAs = argv[3];
    g_view.mountPoint = argv[4];
    g_view.name = argv[6];
    g_view.umask = static_cast<mode_t>(std::strtoul(argv[7], nullptr, 8));
    if (stat(g_view.mountPoint.c_str(), &g_view.root) != 0)
        return Fail(g_view.mountPoint.c_str(), std::strerror(errno));
    g_view.writable = argc > 9 && std::strcmp(argv[8], "write") == 0;
    LimitMemory(image);
    prctl(PR_SET_NAME, "kestro-imagefs");

    int pipes[2];
    if (pipe2(pipes, O_CLOEXEC) != 0)
        return Fail("pipe", std::strerror(errno));
    const pid_t process = fork();
    if (process < 0)
        return Fail("fork", std::strerror(errno));
    if (process != 0) {
        close(pipes[1]);
        return WaitUntilServed(process, pipes[0]);
    }
    dup2(pipes[1], STDOUT_FILENO);
    dup2(pipes[1], STDERR_FILENO);
    close(pipes[0]);
    close(pipes[1]);
    return Serve(image, std::atoi(argv[2]), argv[5], argc == 9,
                 g_view.writable ? argv[9] : nullptr);
}
