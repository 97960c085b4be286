// fuse_entry.cpp - stands between libwim and libfuse: libwim calls fuse_main_real, finds this program's,
// and gets libfuse's with some of its own operations replaced.
//
// Both versions of libfuse are known by the order of their operations, which is part of their binary
// interface, so the program needs neither's headers and runs with the one that libwim brings.
#include "serving.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace kestro::imagefs {

View g_view;

namespace {

// Where libfuse expects an operation, counted in pointers.
struct Places {
    std::size_t getattr, readlink, read, setxattr, getxattr, listxattr, removexattr, init, fgetattr;
};
constexpr Places kVersion2 = {0, 1, 15, 21, 22, 23, 24, 29, 34};
constexpr Places kVersion3 = {0, 1, 13, 19, 20, 21, 22, 27, 0}; // no fgetattr of its own

// Version 3 passes one argument more to some of them, which a function of version 2 never sees.
using GetAttributes = int (*)(const char*, struct stat*, void*);
using ReadLink = int (*)(const char*, char*, std::size_t);
using Read = int (*)(const char*, char*, std::size_t, off_t, void*);
using Init = void* (*)(void*, void*);

GetAttributes g_getAttributes, g_getOpenAttributes;
ReadLink g_readLink;
Read g_read;
Init g_init;
void* g_userData;

// libwim prefixes a link that leads to a place in the image with the place where it is mounted.
int ReadLinkAsShown(const char* path, char* buffer, std::size_t size)
{
    const int result = g_readLink(path, buffer, size);
    const std::string& mountPoint = g_view.mountPoint;
    const std::string target = result == 0 ? buffer : "";
    if (!target.starts_with(mountPoint) ||
        (target.size() > mountPoint.size() && target[mountPoint.size()] != '/'))
        return result;
    const std::string shown = g_view.shownAs + target.substr(mountPoint.size());
    const std::size_t length = std::min(shown.size(), size - 1);
    std::memcpy(buffer, shown.data(), length);
    buffer[length] = '\0';
    return 0;
}

// Everybody may do everything, as libwim has it; an extracted image has what the caller's mask leaves.
int AsShown(const char* path, struct stat* status, int result)
{
    if (result != 0)
        return result;
    if (path != nullptr && std::strcmp(path, "/") == 0) { // an open file may come without its path
        status->st_mode = g_view.root.st_mode;
        status->st_uid = g_view.root.st_uid;
        status->st_gid = g_view.root.st_gid;
    } else if (S_ISDIR(status->st_mode)) {
        status->st_mode = S_IFDIR | (0777 & ~g_view.umask);
    } else if (S_ISREG(status->st_mode)) {
        status->st_mode = S_IFREG | (0666 & ~g_view.umask);
    } else if (S_ISLNK(status->st_mode)) {
        char target[4096];
        if (ReadLinkAsShown(path, target, sizeof target) == 0)
            status->st_size = static_cast<off_t>(std::strlen(target));
    }
    return 0;
}

int GetAttributesAsShown(const char* path, struct stat* status, void* file)
{
    return AsShown(path, status, g_getAttributes(path, status, file));
}

int GetOpenAttributesAsShown(const char* path, struct stat* status, void* file)
{
    return AsShown(path, status, g_getOpenAttributes(path, status, file));
}

// Content that does not let itself be read is an error, and content that takes for ever ends the process:
// the next call of the servicing API starts another.
int ReadInTime(const char* path, char* buffer, std::size_t size, off_t offset, void* file)
{
    constexpr itimerval never = {}, limit = {{}, {60, 0}};
    setitimer(ITIMER_VIRTUAL, &limit, nullptr);
    errno = EIO; // libwim passes on whatever it finds there
    const int result = g_read(path, buffer, size, offset, file);
    setitimer(ITIMER_VIRTUAL, &never, nullptr);
    return result < 0 ? -EIO : result;
}

// The overlay copies a file's attributes with the file: so a file that was changed and renamed tells which
// one of the image it was. Only the superuser sees the attribute.
constexpr char kPlace[] = "trusted.kestro.place";
// Not longer than what file systems keep in an attribute of its own.
constexpr std::size_t kLongestPlace = 1024;

int Give(const char* bytes, std::size_t length, char* buffer, std::size_t size)
{
    if (size != 0 && size < length)
        return -ERANGE;
    if (size != 0)
        std::memcpy(buffer, bytes, length);
    return static_cast<int>(length);
}

int ListPlace(const char* path, char* list, std::size_t size)
{
    return std::strlen(path) > kLongestPlace ? 0 : Give(kPlace, sizeof kPlace, list, size);
}

int GetPlace(const char* path, const char* name, char* value, std::size_t size)
{
    const std::size_t length = std::strlen(path);
    if (std::strcmp(name, kPlace) != 0 || length > kLongestPlace)
        return -ENODATA;
    return Give(path, length, value, size);
}

// The image is mounted, and the first request is about to be answered.
void* Mounted(void* connection, void* settings)
{
    void* const data = g_init != nullptr ? g_init(connection, settings) : g_userData;
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int output = dup(STDOUT_FILENO);
    dup2(nothing, STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    close(nothing);
    if (!g_view.writable && !GiveUpRights())
        _exit(EXIT_FAILURE);
    if (g_view.sharesLock)
        close(kMountLock);
    if (write(output, &kServed, 1) != 1)
        _exit(EXIT_FAILURE);
    close(output);
    return data;
}

template <class Function>
void Replace(void*& operation, Function& original, Function replacement)
{
    original = reinterpret_cast<Function>(operation);
    if (original != nullptr)
        operation = reinterpret_cast<void*>(replacement);
}

template <class Function>
Function Libfuse(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// libwim's operations with ours in their places; empty when libfuse is none that is known.
std::vector<void*> Operations(const void* given, std::size_t bytes, void* userData)
{
    std::vector<void*> operations(bytes / sizeof(void*));
    std::memcpy(operations.data(), given, operations.size() * sizeof(void*));
    const auto version = Libfuse<int (*)()>("fuse_version");
    if (version == nullptr)
        return {};
    const Places& places = version() < 30 ? kVersion2 : kVersion3;
    if (operations.size() <= std::max(places.init, places.fgetattr))
        return {};

    g_userData = userData;
    g_init = reinterpret_cast<Init>(operations[places.init]);
    operations[places.init] = reinterpret_cast<void*>(Mounted);
    if (g_view.writable)
        return operations;
    Replace(operations[places.getattr], g_getAttributes, GetAttributesAsShown);
    if (places.fgetattr != 0)
        Replace(operations[places.fgetattr], g_getOpenAttributes, GetOpenAttributesAsShown);
    Replace(operations[places.readlink], g_readLink, ReadLinkAsShown);
    Replace(operations[places.read], g_read, ReadInTime);
    // One of libwim's attributes ends the mount for whoever reads it.
    const bool isBelowOverlay = g_view.mountPoint != g_view.shownAs;
    operations[places.setxattr] = operations[places.removexattr] = nullptr;
    operations[places.getxattr] = isBelowOverlay ? reinterpret_cast<void*>(GetPlace) : nullptr;
    operations[places.listxattr] = isBelowOverlay ? reinterpret_cast<void*>(ListPlace) : nullptr;
    return operations;
}

std::vector<char*> Arguments(int count, char** given)
{
    static std::string foreground = "-f", option = "-o", name = "fsname=" + g_view.name;
    std::vector<char*> arguments(given, given + count);
    for (std::string* more : {&foreground, &option, &name})
        arguments.push_back(more->data());
    return arguments;
}

// Calls libfuse's function of that name as libwim called ours.
template <class... Last>
int CallLibfuse(const char* name, int count, char** arguments, const void* operations,
                std::size_t bytes, void* userData, Last... last)
{
    const auto real = Libfuse<int (*)(int, char**, const void*, std::size_t, Last...)>(name);
    const auto replaced = Operations(operations, bytes, userData);
    if (real == nullptr || replaced.empty()) {
        std::fputs("this libfuse is not known\n", stderr);
        return EXIT_FAILURE;
    }
    auto all = Arguments(count, arguments);
    const int length = static_cast<int>(all.size());
    all.push_back(nullptr);
    return real(length, all.data(), replaced.data(), bytes, last...);
}

} // namespace
} // namespace kestro::imagefs

extern "C" {

__attribute__((visibility("default"))) int fuse_main_real(int count, char** arguments,
                                                          const void* operations, std::size_t bytes,
                                                          void* userData)
{
    return kestro::imagefs::CallLibfuse("fuse_main_real", count, arguments, operations, bytes,
                                        userData, userData);
}

// What libwim calls with libfuse 3.17 and later.
__attribute__((visibility("default"))) int fuse_main_real_versioned(int count, char** arguments,
                                                                    const void* operations,
                                                                    std::size_t bytes,
                                                                    void* version, void* userData)
{
    return kestro::imagefs::CallLibfuse("fuse_main_real_versioned", count, arguments, operations,
                                        bytes, userData, version, userData);
}

} // extern "C"
