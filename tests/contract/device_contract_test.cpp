// device_contract_test.cpp - the exact calls behind InfInstall, OpenVdFile and OpenPhDrive, and that
// nothing runs between the system's answer and the host.
#include "support/kestro_library.h"
#include "support/platform.h"

namespace kestro::test {
namespace {

// What the scripted system answers.
HANDLE opened = nullptr;
BOOL installed = TRUE;

HANDLE WINAPI OpenFile(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                       DWORD disposition, DWORD attributes, HANDLE model)
{
    const Platform& platform = Platform::Active();
    Platform::Active().Record(Format(
        "CreateFileW(%s, access 0x%lX, share %lu, %s, disposition %lu, attributes 0x%lX, %s)",
        platform.Show(path).c_str(), access, share, platform.ShowPointer(security).c_str(),
        disposition, attributes, platform.ShowPointer(model).c_str()));
    SetLastError(platform.LastError());
    return opened;
}

BOOL WINAPI InstallDriver(HWND parent, LPCWSTR inf, DWORD flags, PBOOL restart)
{
    const Platform& platform = Platform::Active();
    Platform::Active().Record(
        Format("DiInstallDriverW(%s, %s, 0x%lX, %s)", platform.ShowPointer(parent).c_str(),
               platform.Show(inf).c_str(), flags, platform.ShowPointer(restart).c_str()));
    SetLastError(platform.LastError());
    return installed;
}

const Doubles doubles{{"CreateFileW", OpenFile}, {"DiInstallDriverW", InstallDriver}};

constexpr DWORD reason = 4711;
const wchar_t path[] = L"\\\\?\\PhysicalDrive1";

// The thread's last error is what the system left, right after the call.
template <typename Export, typename Argument>
auto CallAlone(Platform& platform, const char* name, Argument argument)
{
    platform.Name(path, "Path");
    SetLastError(reason);
    const auto function = KestroLibrary::Get().Find<Export>(name);
    const auto result = function(argument);
    EXPECT_EQ(GetLastError(), platform.LastError()) << name;
    return result;
}

using Opener = HANDLE(__stdcall*)(const wchar_t*);
using Installer = int(__stdcall*)(const wchar_t*);

constexpr struct {
    const char* name;
    const char* arguments;
} openers[] = {
    {"OpenVdFile", "access 0x80000000, share 1, NULL, disposition 3, attributes 0x80, NULL"},
    {"OpenPhDrive", "access 0x40000000, share 0, NULL, disposition 3, attributes 0xA0000000, NULL"},
};

TEST(Openers, OneCallAndItsHandleAsItIs)
{
    const auto handle = [](std::uintptr_t value) { return reinterpret_cast<HANDLE>(value); };
    const struct {
        HANDLE system, host;
    } answers[] = {
        {handle(0x44), handle(0x44)},
        {INVALID_HANDLE_VALUE, nullptr},
        {nullptr, nullptr},
        // Only the one invalid value becomes null.
        {handle(~std::uintptr_t{1}), handle(~std::uintptr_t{1})},
        {handle(0xFFFFFFFF), handle(0xFFFFFFFF)},
    };
    for (const auto& opener : openers)
        for (const auto& answer : answers) {
            Platform platform;
            opened = answer.system;
            EXPECT_EQ(CallAlone<Opener>(platform, opener.name, path), answer.host);
            EXPECT_TRUE(SameTranscript({Format("CreateFileW(Path, %s)", opener.arguments)},
                                       platform.Recorded()));
        }
}

TEST(Openers, ANullPathGoesToTheSystem)
{
    for (const auto& opener : openers) {
        Platform platform;
        opened = INVALID_HANDLE_VALUE;
        EXPECT_EQ(CallAlone<Opener>(platform, opener.name, static_cast<const wchar_t*>(nullptr)),
                  nullptr);
        EXPECT_TRUE(SameTranscript({Format("CreateFileW(NULL, %s)", opener.arguments)},
                                   platform.Recorded()));
    }
}

TEST(InfInstall, OneCallAndExactlyOneOrZero)
{
    for (const BOOL answer : {TRUE, FALSE, 2, -1, 256, static_cast<BOOL>(0x80000000)}) {
        Platform platform;
        installed = answer;
        EXPECT_EQ(CallAlone<Installer>(platform, "InfInstall", path), answer ? 1 : 0) << answer;
        EXPECT_TRUE(
            SameTranscript({"DiInstallDriverW(NULL, Path, 0x0, NULL)"}, platform.Recorded()));
    }
}

TEST(EntryPoint, EveryNotificationSucceedsAndDoesNothing)
{
    const HMODULE module = KestroLibrary::Get().Module();
    const auto* const base = reinterpret_cast<const char*>(module);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    // Loading it for the tests was the notification of the process; a failure there would have ended them.
    const auto entry = reinterpret_cast<BOOL(WINAPI*)(HINSTANCE, DWORD, LPVOID)>(
        reinterpret_cast<std::uintptr_t>(base) + headers->OptionalHeader.AddressOfEntryPoint);
    Platform platform;
    EXPECT_EQ(entry(module, DLL_THREAD_ATTACH, nullptr), TRUE);
    EXPECT_EQ(entry(module, DLL_THREAD_DETACH, nullptr), TRUE);
    EXPECT_TRUE(SameTranscript({}, platform.Recorded()));
}

} // namespace
} // namespace kestro::test
