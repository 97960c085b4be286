// image_server.cpp - the processes that show images through FUSE.
//
// Such a process outlives its caller, which is a Windows program under Wine: it is a program of its own
// in a session of its own, and inherits nothing.
#include "image_server.h"

#include "file_system.h"
#include "servicing_error.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <csignal>
#include <optional>
#include <utility>
#include <vector>

namespace kestro::servicing {
namespace {

// An image of more than a million files takes some seconds.
constexpr std::chrono::seconds kPatience(60), kPatienceAtTheEnd(5);
// The server's number for it.
constexpr int kMountLock = 3;

// As the kernel shows it: asking by umask() would change it for a moment.
std::string FileModeMask()
{
    const std::string status = ReadWholeFile("/proc/self/status");
    const std::size_t found = status.find("\nUmask:\t");
    return found == std::string::npos ? "022" : status.substr(found + 8, 4);
}

class SpawnSettings {
  public:
    SpawnSettings(int output, int mountLock)
    {
        posix_spawn_file_actions_init(&files_);
        posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&files_, output, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&files_, output, STDERR_FILENO);
        int first = kMountLock;
        if (mountLock >= 0)
            posix_spawn_file_actions_adddup2(&files_, mountLock, first++);
        posix_spawn_file_actions_addclosefrom_np(&files_, first);
        posix_spawn_file_actions_addchdir_np(&files_, "/");
        posix_spawnattr_init(&attributes_);
        sigset_t none, all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK |
                                                   POSIX_SPAWN_SETSIGDEF);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings()
    {
        posix_spawn_file_actions_destroy(&files_);
        posix_spawnattr_destroy(&attributes_);
    }
    int Spawn(pid_t& process, std::vector<std::string> words) const
    {
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        std::string path = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
        const std::array<char*, 2> environment = {path.data(), nullptr};
        return posix_spawn(&process, arguments[0], &files_, &attributes_, arguments.data(),
                           environment.data());
    }

  private:
    posix_spawn_file_actions_t files_;
    posix_spawnattr_t attributes_;
};

// Waits until something happens to the descriptor. Only the time counts in which this process ran: a container
// that was paused has paused the other process, too.
bool Await(int descriptor, std::chrono::milliseconds patience)
{
    constexpr std::chrono::milliseconds step(100);
    pollfd poller = {descriptor, POLLIN, 0};
    for (auto waited = step; waited <= patience; waited += step)
        if (poll(&poller, 1, static_cast<int>(step.count())) > 0)
            return true;
    return false;
}

// What comes out of the pipe until nobody can write into it any more; nothing after too long a time.
std::optional<std::string> ReadAll(int pipe)
{
    std::string text;
    for (;;) {
        if (!Await(pipe, kPatience))
            return std::nullopt;
        char block[1024];
        const ssize_t count = read(pipe, block, sizeof block);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return text;
        text.append(block, static_cast<std::size_t>(count));
    }
}

int Wait(pid_t process)
{
    int status = 0;
    while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

// A lock of another process that keeps this one from locking the file; without a type when there is none.
struct flock HolderOf(const std::string& path)
{
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || fcntl(file.Get(), F_GETLK, &lock) != 0)
        lock.l_type = F_UNLCK;
    return lock;
}

FileDescriptor OpenHolder(const std::string& path)
{
    const struct flock lock = HolderOf(path);
    if (lock.l_type == F_UNLCK || lock.l_pid <= 0)
        return FileDescriptor();
    FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, lock.l_pid, 0)));
    // The number may have become another process's meanwhile.
    return HolderOf(path).l_pid == lock.l_pid ? std::move(process) : FileDescriptor();
}

} // namespace

void StartServing(const ImageServer& server, ServerAccess access)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw SystemError("cannot start " + server.program);
    const FileDescriptor output(ends[0]);
    FileDescriptor input(ends[1]);
    std::vector<std::string> words = {
        server.program, server.image,      std::to_string(server.index),
        server.shownAs, server.mountPoint, server.lock,
        server.name,    FileModeMask()};
    if (access == ServerAccess::Others)
        words.emplace_back("others");
    if (!server.staging.empty())
        words.insert(words.end(), {"write", server.staging});
    pid_t process = 0;
    errno = SpawnSettings(input.Get(), server.mountLock).Spawn(process, std::move(words));
    if (errno != 0)
        throw SystemError("cannot start " + server.program);
    input = FileDescriptor();

    std::optional<std::string> text = ReadAll(output.Get());
    if (!text) {
        kill(-process, SIGKILL); // all of its session
        text = "it takes too long";
    }
    const int status = Wait(process);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return;
    while (!text->empty() && text->back() == '\n')
        text->pop_back();
    throw ServicingError(code::unexpected, "image " + std::to_string(server.index) + " of " +
                                               server.image + " cannot be served: " + *text);
}

bool IsServed(const std::string& lock)
{
    return HolderOf(lock).l_type != F_UNLCK;
}

bool IsServedElsewhere(const std::string& lock)
{
    const struct flock holder = HolderOf(lock);
    if (holder.l_type == F_UNLCK)
        return false;
    struct stat own = {}, other = {};
    const std::string process = "/proc/" + std::to_string(holder.l_pid) + "/ns/mnt";
    return holder.l_pid <= 0 || stat(process.c_str(), &other) != 0 ||
           stat("/proc/self/ns/mnt", &own) != 0 || own.st_ino != other.st_ino;
}

bool AwaitEndOfServing(const std::string& lock)
{
    if (const FileDescriptor process = OpenHolder(lock))
        Await(process.Get(), kPatienceAtTheEnd);
    return !IsServed(lock);
}

void EndServing(const std::string& lock)
{
    if (const FileDescriptor process = OpenHolder(lock))
        syscall(SYS_pidfd_send_signal, process.Get(), SIGKILL, nullptr, 0);
    AwaitEndOfServing(lock);
}

} // namespace kestro::servicing
