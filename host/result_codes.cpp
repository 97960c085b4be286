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
    {0x80070005, "access denied", "Run as administrator, and check who may write there."},
    {0x8007000B, "this is no image file, or a damaged one", ""},
    {0x80070070, "the disk is full", "Make room, then try again."},
    {0x800703F1, "the image's registry cannot be trusted",
     "Its hive is damaged, or was not closed properly by the system that used it."},
    {0x800F024B, "a file of the package is not what its catalog was signed for",
     "Use the package as its maker published it; the log names the file."},
    {0x800F0244, "the package is signed for other versions of Windows",
     "Use the package for the image's Windows."},
    {0x800F0242, "the signer of the package is not trusted",
     "Use a package whose signer may sign drivers; the log says what is wrong."},
    {0x80096010, "the package's catalog was changed after it was signed",
     "Use the package as its maker published it."},
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

struct Named {
    std::uint32_t code;
    const char* name;
};

// The names that the platform's headers give.
constexpr Named kNames[] = {
    {0x80004001, "E_NOTIMPL"},
    {0x80004003, "E_POINTER"},
    {0x80004005, "E_FAIL"},
    {0x8000FFFF, "E_UNEXPECTED"},
    {0x80040154, "REGDB_E_CLASSNOTREG"},
    {0x80070002, "ERROR_FILE_NOT_FOUND"},
    {0x80070003, "ERROR_PATH_NOT_FOUND"},
    {0x80070005, "E_ACCESSDENIED"},
    {0x8007000B, "ERROR_BAD_FORMAT"},
    {0x8007000E, "E_OUTOFMEMORY"},
    {0x80070020, "ERROR_SHARING_VIOLATION"},
    {0x80070032, "ERROR_NOT_SUPPORTED"},
    {0x80070057, "E_INVALIDARG"},
    {0x80070070, "ERROR_DISK_FULL"},
    {0x8007007E, "ERROR_MOD_NOT_FOUND"},
    {0x800702E4, "ERROR_ELEVATION_REQUIRED"},
    {0x800703F1, "ERROR_BADDB"},
    {0x800706BA, "RPC_S_SERVER_UNAVAILABLE"},
    {0x800706BE, "RPC_S_CALL_FAILED"},
    {0x800B0100, "TRUST_E_NOSIGNATURE"},
    {0x800F0902, "DISMAPI_E_BUSY"},
    {0xC0040001, "DISMAPI_E_DISMAPI_NOT_INITIALIZED"},
    {0xC0040002, "DISMAPI_E_SHUTDOWN_IN_PROGRESS"},
    {0xC0040003, "DISMAPI_E_OPEN_SESSION_HANDLES"},
    {0xC0040004, "DISMAPI_E_INVALID_DISM_SESSION"},
    {0xC0040005, "DISMAPI_E_INVALID_IMAGE_INDEX"},
    {0xC0040006, "DISMAPI_E_INVALID_IMAGE_NAME"},
    {0xC0040007, "DISMAPI_E_UNABLE_TO_UNMOUNT_IMAGE_PATH"},
    {0xC0040009, "DISMAPI_E_LOGGING_DISABLED"},
    {0xC004000A, "DISMAPI_E_OPEN_HANDLES_UNABLE_TO_UNMOUNT_IMAGE_PATH"},
    {0xC004000B, "DISMAPI_E_OPEN_HANDLES_UNABLE_TO_MOUNT_IMAGE_PATH"},
    {0xC004000E, "DISMAPI_E_MUST_SPECIFY_ONLINE_IMAGE"},
    {0xC1510114, "DISMAPI_E_NEEDS_REMOUNT"},
};

const char* NameOf(std::uint32_t code)
{
    for (const Named& named : kNames)
        if (named.code == code)
            return named.name;
    return "";
}

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
            return {hex, NameOf(bits), known.message, known.hint};
    return {hex, NameOf(bits), SystemMessage(bits), ""};
}

} // namespace kestro::host
