// result_codes.cpp - what the platform's result codes mean to a person.
#include "result_codes.h"

#include "kestro.hpp"

#include <cstdio>

namespace kestro::host {
namespace {

struct Known {
    std::uint32_t code;
    const char* message;
    const char* hint;
};

constexpr Known kKnown[] = {
    {0xC0040001, "the servicing API is not initialised", ""},
    {0xC0040002, "the servicing API is shutting down", "Wait for the other operation to end."},
    {0xC0040003, "servicing sessions are still open", ""},
    {0xC0040004, "the servicing session is not open", ""},
    {0xC0040006, "the image file holds no image of that name", ""},
    {0xC0040007, "the directory cannot be unmounted", "Close what is open in it and try again."},
    {0xC004000A, "a session on the mounted image is open", "Close it before unmounting."},
    {0xC1420101, "the image file is read-only", "Make the file writable to mount it read-write."},
    {0xC142010B, "the directory holds no mounted image", "Name the directory given to mount."},
    {0xC142010C, "the image is mounted read-only", "Unmount it with --discard."},
    {0xC1420111, "the mounted image was not found", ""},
    {0xC1420112, "a file in the mount directory is in use", "Close it and try again."},
    {0xC1420113, "the directory already holds a mounted image",
     "Unmount it first, or use another."},
    {0xC1420114, "the mount directory is not empty", "Use an empty directory."},
    {0xC1420115, "the mount directory does not exist", "Create it first."},
    {0xC1420117, "the directory could only be unmounted in part",
     "Close what is open in it, then "
     "unmount again."},
    {0xC142011C, "the directory is not the one that was mounted", "Unmount it with --discard."},
    {0xC142011D, "the mount is unfinished and cannot be saved", "Unmount it with --discard."},
    {0xC1420120, "the mounted image is damaged", "Unmount it with --discard."},
    {0xC1420122, "the image file was changed after it was mounted",
     "Keep what you need from the "
     "directory, then --discard."},
    {0xC1420126, "the image is already mounted", "Unmount it first."},
    {0xC1420127, "the image is already mounted read-write", "Unmount it first."},
    {0xC142013C, "the image's compression cannot be mounted", "Export it to a WIM file first."},
    {0xC1510111, "no permission to mount and change the image", "Run elevated."},
    {0xC1510113, "the image file holds no such image", ""},
    {0xC1510115, "the mounted image is invalid", "Unmount it with --discard."},
    {0x800702E4, "the operation needs elevation", "Run as administrator."},
    {0x80070032, "not supported", "An in-box driver, or one for another architecture?"},
    {0x800F0247, "the driver package has no valid signature", "Use a signed package."},
    {0x800F022F, "the driver package's catalog or a file of it is missing",
     "Keep the INF together "
     "with all its files."},
    {0x800B0100, "no signature was found", "Use a signed package."},
    {0x800F0902, "another servicing operation is under way", "Wait for it to end."},
    {0x80042405, "the disk service has no such object", ""},
    {0x80042408, "the disk holds data volumes", "Add --force to clean it all the same."},
    {0x80042409, "an operation on the disk is under way", "Wait for it to end."},
    {0x8004240A, "the disk service refuses the operation", ""},
    {0x8004240D, "the operation was cancelled", ""},
    {0x80042807, "the disk holds the boot volume", ""},
    {0x8004280A, "the disk is offline", "Bring it online first."},
    {0x8004280B, "the disk is read-only", ""},
    {0x80042811, "the disk holds the system volume", ""},
};

std::string SystemMessage(std::uint32_t code)
{
    wchar_t* text = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::string message = detail::Utf8({text, length});
    LocalFree(text);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r'))
        message.pop_back();
    return message;
}

} // namespace

CodeText Describe(std::int32_t code)
{
    const auto bits = static_cast<std::uint32_t>(code);
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", bits);
    for (const Known& known : kKnown)
        if (known.code == bits)
            return {hex, known.message, known.hint};
    return {hex, SystemMessage(bits), ""};
}

} // namespace kestro::host
