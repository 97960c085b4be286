// surface_test.cpp - what Kestro.dll shows of itself: exports, imports, flags, size, version.
#include "support/import_lists.h"
#include "support/kestro_library.h"
#include "surface/header_use.h"
#include "surface/image_file.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <winver.h>

namespace kestro::test {
namespace {

const ImageFile& Library()
{
    static const ImageFile file(KestroLibrary::Get().Path());
    return file;
}

// In the order of the table, which is the order of their names.
const std::vector<std::string> exports{
    "AddDriver",     "AddDriverList",  "AddDriverListW", "AddDriverW",      "CleanDisk",
    "GetDriverInfo", "GetDriverInfoW", "GetDrivers",     "GetDriversW",     "InfInstall",
    "MountWimImage", "MountWimImageW", "OfflineDisk",    "OnlineDisk",      "OpenPhDrive",
    "OpenVdFile",    "RemoveDriver",   "RemoveDriverW",  "UnmountWimImage", "UnmountWimImageW",
    "WriteTest",     "WriteTestW",
};

TEST(Surface, ExportsTheseFunctionsAndNothingElse)
{
    EXPECT_EQ(Library().Exports(), exports);
}

std::vector<std::string> Names(const std::vector<ListedImport>& list)
{
    std::vector<std::string> names;
    for (const ListedImport& import : list)
        names.push_back(std::string(import.dll) + ' ' + std::string(import.name));
    return names;
}

// What the library's own objects leave to others; what its toolchain's runtime needs does not stand there.
std::set<std::string> OwnReferences()
{
    // Lies beside this program.
    std::ifstream file(std::filesystem::path(BuiltFile(L"")).parent_path().parent_path() /
                       L"tests" / L"bin" / L"surface_references.txt");
    std::set<std::string> names;
    for (std::string name; file >> name;)
        names.insert(name.starts_with("__imp_") ? name.substr(6) : name);
    return names;
}

TEST(Surface, ItsSourcesCallNothingThatIsNotListed)
{
    if (KestroLibrary::Instrumented())
        GTEST_SKIP() << "not the library that ships";
    const std::set<std::string> own = OwnReferences();
    ASSERT_TRUE(own.contains("CreateFileW"));
    // In the standard library's headers: the text of an error that leaves an export.
    std::vector<std::string> listed{"kernel32.dll LocalFree"};
    for (const std::string& name : Names(PlatformImports()))
        listed.push_back(name);
    const auto isRuntime = [](const std::string& import) {
        return import.starts_with("kernel32.dll ") || import.starts_with("msvcrt.dll ");
    };
    for (const std::string& import : Library().Imports()) {
        const std::string name = import.substr(import.find(' ') + 1);
        if (!isRuntime(import) || (own.contains(name) && !import.starts_with("msvcrt.dll "))) {
            EXPECT_THAT(listed, testing::Contains(import));
        }
    }
}

TEST(Surface, ImportsEveryListedFunctionOfThePlatform)
{
    const std::vector<std::string> imports = Library().Imports();
    for (const std::string& name : Names(PlatformImports()))
        EXPECT_THAT(imports, testing::Contains(name));
}

TEST(Surface, IsA64BitDllForThisProcessor)
{
    const IMAGE_NT_HEADERS64& headers = Library().Headers();
    EXPECT_EQ(headers.FileHeader.Machine, IMAGE_FILE_MACHINE_AMD64);
    EXPECT_EQ(headers.OptionalHeader.Magic, IMAGE_NT_OPTIONAL_HDR64_MAGIC);
    EXPECT_TRUE(headers.FileHeader.Characteristics & IMAGE_FILE_DLL);
}

void ExpectHardened(const ImageFile& file)
{
    const IMAGE_NT_HEADERS64& headers = file.Headers();
    const WORD wanted = IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA |
                        IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE | IMAGE_DLLCHARACTERISTICS_NX_COMPAT;
    EXPECT_EQ(headers.OptionalHeader.DllCharacteristics & wanted, wanted);
    EXPECT_NE(headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_BASERELOC].Size, 0u);
    EXPECT_FALSE(headers.FileHeader.Characteristics & IMAGE_FILE_RELOCS_STRIPPED);

    for (const IMAGE_SECTION_HEADER& section : file.Sections()) {
        const DWORD both = IMAGE_SCN_MEM_WRITE | IMAGE_SCN_MEM_EXECUTE;
        EXPECT_NE(section.Characteristics & both, both)
            << std::string(reinterpret_cast<const char*>(section.Name), 8);
    }
}

TEST(Surface, LoadsAnywhereAndExecutesNoData)
{
    ExpectHardened(Library());
}

// A host that is not hardened itself gains nothing from a hardened library.
TEST(Surface, HostLoadsAnywhereAndExecutesNoData)
{
    const ImageFile host(BuiltFile(L"kestro.exe"));
    EXPECT_FALSE(host.Headers().FileHeader.Characteristics & IMAGE_FILE_DLL);
    ExpectHardened(host);
}

#if defined(NDEBUG)
TEST(Surface, IsSmall)
{
    if (KestroLibrary::Instrumented())
        GTEST_SKIP() << "not the library that ships";
    EXPECT_LE(Library().Size(), 200u * 1024);
    EXPECT_EQ(Library().Headers().FileHeader.NumberOfSymbols, 0u);
}
#endif

std::wstring VersionString(const std::vector<char>& resource, const std::wstring& name)
{
    void* text = nullptr;
    UINT length = 0;
    const std::wstring query = L"\\StringFileInfo\\040904B0\\" + name;
    if (!VerQueryValueW(resource.data(), query.c_str(), &text, &length) || length == 0)
        return L"(missing)";
    return static_cast<const wchar_t*>(text);
}

TEST(Surface, SaysWhatItIs)
{
    const std::wstring& path = KestroLibrary::Get().Path();
    DWORD unused = 0;
    std::vector<char> resource(GetFileVersionInfoSizeW(path.c_str(), &unused));
    ASSERT_FALSE(resource.empty());
    ASSERT_TRUE(
        GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data()));

    EXPECT_EQ(VersionString(resource, L"ProductName"), L"Kestro");
    EXPECT_EQ(VersionString(resource, L"OriginalFilename"), L"Kestro.dll");
    EXPECT_EQ(VersionString(resource, L"InternalName"), L"Kestro.dll");
    EXPECT_EQ(VersionString(resource, L"FileDescription"),
              L"Kestro servicing of offline Windows images and disks");
    EXPECT_EQ(VersionString(resource, L"FileVersion"), KESTRO_VERSION);
    EXPECT_EQ(VersionString(resource, L"ProductVersion"), KESTRO_VERSION);

    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(resource.data(), L"\\", reinterpret_cast<void**>(&fixed), &length));
    EXPECT_EQ(fixed->dwFileType, DWORD{VFT_DLL});
    EXPECT_EQ(std::to_wstring(HIWORD(fixed->dwFileVersionMS)) + L'.' +
                  std::to_wstring(LOWORD(fixed->dwFileVersionMS)) + L'.' +
                  std::to_wstring(HIWORD(fixed->dwFileVersionLS)),
              KESTRO_VERSION);
}

// --- the public header, as a C and as a C++ program see it ---

std::vector<std::string> FunctionsOf(void (*visit_all)(HeaderVisitor, void*))
{
    std::vector<std::string> declared;
    visit_all(
        [](void* names, const char* name, HeaderFunction function) {
            static_cast<std::vector<std::string>*>(names)->emplace_back(name);
            EXPECT_EQ(function, KestroLibrary::Get().Find<HeaderFunction>(name)) << name;
        },
        &declared);
    std::sort(declared.begin(), declared.end());
    return declared;
}

TEST(Header, DeclaresEveryExportForC)
{
    EXPECT_EQ(FunctionsOf(VisitHeaderFunctionsInC), exports);
}

TEST(Header, DeclaresEveryExportForCpp)
{
    EXPECT_EQ(FunctionsOf(VisitHeaderFunctionsInCpp), exports);
}

TEST(Library, LoadingAndUnloadingHaveNoEffectAndSucceed)
{
    const auto entry = reinterpret_cast<BOOL(WINAPI*)(HINSTANCE, DWORD, LPVOID)>(
        reinterpret_cast<char*>(KestroLibrary::Get().Module()) +
        Library().Headers().OptionalHeader.AddressOfEntryPoint);
    EXPECT_TRUE(entry(KestroLibrary::Get().Module(), DLL_THREAD_ATTACH, nullptr));
    EXPECT_TRUE(entry(KestroLibrary::Get().Module(), DLL_THREAD_DETACH, nullptr));

    const HMODULE again = LoadLibraryW(KestroLibrary::Get().Path().c_str());
    EXPECT_EQ(again, KestroLibrary::Get().Module());
    EXPECT_TRUE(FreeLibrary(again));
}

} // namespace
} // namespace kestro::test
