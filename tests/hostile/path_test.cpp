// path_test.cpp - hostile paths in every argument that takes one, against the embedded platform and the
// system.
#include "hostile/hostile_case.h"
#include "hostile/recorded_writers.h"

#include <functional>

namespace kestro::test {
namespace {

constexpr HRESULT invalid_parameter = static_cast<HRESULT>(0x80070057);
constexpr HRESULT path_not_found = static_cast<HRESULT>(0x80070003);
constexpr HRESULT directory_missing = static_cast<HRESULT>(0xC1420115);

// One path argument of a pair of exports, the others being good.
struct PathArgument {
    const char* name;
    std::function<unsigned(const wchar_t*)> narrow, wide;
    HRESULT missing;   // the code of the failed step for null and empty
    HRESULT not_found; // and for the others
};

class HostilePaths : public HostileCase {
  protected:
    void SetUp() override
    {
        HostileCase::SetUp();
        mount_ = Path(L"mount");
        std::filesystem::create_directories(mount_);
    }

    // Each hostile text fails both forms with a documented code.
    void ExpectFailures(const PathArgument& argument)
    {
        for (const HostileText& text : HostileTexts()) {
            const bool missing = !text.wide || text.wide->empty();
            const HRESULT code = missing ? argument.missing : argument.not_found;
            SCOPED_TRACE(std::string(argument.name) + ", " + text.name);
            EXPECT_EQ(argument.narrow(text.Wide()), 1u);
            EXPECT_EQ(TakeFailure(), code);
            EXPECT_EQ(argument.wide(text.Wide()), 0u);
            EXPECT_EQ(TakeFailure(), code);
        }
        ExpectStillServes();
    }

    // The calls before left no session open and no API initialised.
    void ExpectStillServes()
    {
        EXPECT_EQ(GetDrivers(Image(), LogFile(), Result()), 0);
        EXPECT_EQ(TakeFailure(), 0);
        EXPECT_EQ(GetDriversW(Image(), LogFile(), ResultW()), 1);
        EXPECT_EQ(TakeFailure(), 0);
    }

    std::filesystem::path mount_;
    const std::wstring wim_ = KESTRO_SAMPLES L"/long-path.wim";
};

using Text = const wchar_t*;

TEST_F(HostilePaths, ImageFileAndMountDirectory)
{
    const Text mount = mount_.c_str(), wim = wim_.c_str();
    const PathArgument arguments[] = {
        {"image file", [&](Text t) { return MountWimImage(t, mount, LogFile(), Result()); },
         [&](Text t) { return MountWimImageW(t, mount, LogFile(), ResultW()); }, invalid_parameter,
         path_not_found},
        {"mount directory", [&](Text t) { return MountWimImage(wim, t, LogFile(), Result()); },
         [&](Text t) { return MountWimImageW(wim, t, LogFile(), ResultW()); }, invalid_parameter,
         directory_missing},
        {"unmount", [&](Text t) { return UnmountWimImage(t, 1, LogFile(), Result()); },
         [&](Text t) { return UnmountWimImageW(t, 0, LogFile(), ResultW()); }, invalid_parameter,
         directory_missing},
    };
    for (const PathArgument& argument : arguments)
        ExpectFailures(argument);
    EXPECT_TRUE(std::filesystem::is_empty(mount_));
}

TEST_F(HostilePaths, ImageDirectory)
{
    const Text inf = L"C:\\a.inf";
    const PathArgument arguments[] = {
        {"add", [&](Text t) { return AddDriver(t, inf, LogFile(), Result()); },
         [&](Text t) { return AddDriverW(t, inf, LogFile(), ResultW()); }, invalid_parameter,
         path_not_found},
        {"remove", [&](Text t) { return RemoveDriver(t, inf, LogFile(), Result()); },
         [&](Text t) { return RemoveDriverW(t, inf, LogFile(), ResultW()); }, invalid_parameter,
         path_not_found},
        {"list", [&](Text t) { return GetDrivers(t, LogFile(), Result()); },
         [&](Text t) { return GetDriversW(t, LogFile(), ResultW()); }, invalid_parameter,
         path_not_found},
        {"query", [&](Text t) { return GetDriverInfo(t, inf, LogFile(), Result()); },
         [&](Text t) { return GetDriverInfoW(t, inf, LogFile(), ResultW()); }, invalid_parameter,
         path_not_found},
    };
    for (const PathArgument& argument : arguments)
        ExpectFailures(argument);
}

TEST_F(HostilePaths, Package)
{
    const PathArgument arguments[] = {
        {"add", [&](Text t) { return AddDriver(Image(), t, LogFile(), Result()); },
         [&](Text t) { return AddDriverW(Image(), t, LogFile(), ResultW()); }, invalid_parameter,
         path_not_found},
        // Anything but a published name is a bad argument.
        {"remove", [&](Text t) { return RemoveDriver(Image(), t, LogFile(), Result()); },
         [&](Text t) { return RemoveDriverW(Image(), t, LogFile(), ResultW()); }, invalid_parameter,
         invalid_parameter},
        // A failed query tells its code on the console alone.
        {"query", [&](Text t) { return GetDriverInfo(Image(), t, LogFile(), Result()); },
         [&](Text t) { return GetDriverInfoW(Image(), t, LogFile(), ResultW()); }, S_OK, S_OK},
    };
    for (const PathArgument& argument : arguments)
        ExpectFailures(argument);
}

TEST_F(HostilePaths, PackageList)
{
    // A null entry is the narrow form's alone. Paths are keys here, and from 32,767 characters on Wine's
    // narrow writer takes the key from uninitialised memory.
    constexpr size_t longest_key = 32766;
    std::wstring entries[8];
    Text narrow[8], wide[8];
    const auto& texts = HostileTexts();
    for (size_t i = 0; i < 8; ++i) {
        const HostileText& text = texts[i % texts.size()];
        entries[i] = text.wide.value_or(L"").substr(0, longest_key);
        wide[i] = entries[i].c_str();
        narrow[i] = text.wide ? wide[i] : nullptr;
    }
    // Packages that fail do not fail the call.
    EXPECT_EQ(AddDriverList(Image(), narrow, LogFile(), Result()), 0);
    EXPECT_EQ(TakeFailure(), invalid_parameter);
    EXPECT_EQ(AddDriverListW(Image(), wide, LogFile(), ResultW()), 1);
    EXPECT_EQ(TakeFailure(), invalid_parameter);
    {
        const RecordedWriters writers;
        for (size_t i = 0; i < 8; ++i) {
            narrow[i] = texts[i % texts.size()].Wide();
            wide[i] = narrow[i] ? narrow[i] : L"";
        }
        EXPECT_EQ(AddDriverList(Image(), narrow, LogFile(), Result()), 0);
        EXPECT_EQ(AddDriverListW(Image(), wide, LogFile(), ResultW()), 1);
        EXPECT_EQ(writers.Files(), (std::set<const void*>{nullptr, Result(), ResultW()}));
    }
    ExpectStillServes();

    for (size_t i = 0; i < 8; ++i)
        narrow[i] = wide[i] = L"C:\\a.inf";
    ExpectFailures({"image of a list",
                    [&](Text t) { return AddDriverList(t, narrow, LogFile(), Result()); },
                    [&](Text t) { return AddDriverListW(t, wide, LogFile(), ResultW()); },
                    invalid_parameter, path_not_found});
}

TEST_F(HostilePaths, LogFileCostsTheLogAlone)
{
    for (const HostileText& text : HostileTexts()) {
        const std::optional<std::wstring> log_file = InFolder(text);
        const Text path = log_file ? log_file->c_str() : nullptr;
        EXPECT_EQ(GetDrivers(Image(), path, Result()), 0) << text.name;
        EXPECT_EQ(GetDriversW(Image(), path, ResultW()), 1) << text.name;
    }
}

// Half a surrogate pair has no place in the code page; the narrow form gets a byte that means nothing.
std::optional<std::string> Narrow(const std::optional<std::wstring>& wide)
{
    if (!wide)
        return {};
    std::string narrow;
    for (const wchar_t c : *wide)
        narrow += c < 0x80 ? static_cast<char>(c) : '\xFF';
    return narrow;
}

class HostileReports : public HostilePaths {
  protected:
    void SetUp() override
    {
        HostilePaths::SetUp();
        for (const HostileText& text : HostileTexts()) {
            const std::optional<std::wstring> wide = InFolder(text);
            paths_.push_back({text.name, wide, Narrow(wide)});
        }
    }

    struct ReportPath {
        const char* name;
        std::optional<std::wstring> wide;
        std::optional<std::string> narrow;

        const wchar_t* Wide() const { return wide ? wide->c_str() : nullptr; }
        const char* Narrow() const { return narrow ? narrow->c_str() : nullptr; }
        bool IsLong() const { return wide && wide->size() >= MAX_PATH; }
    };

    void CallNarrow(const ReportPath& path)
    {
        EXPECT_EQ(GetDrivers(Image(), LogFile(), path.Narrow()), 0) << path.name;
        WriteTest(path.Narrow());
        if (!Thorough())
            return;
        CoInitializeEx(nullptr, COINIT_MULTITHREADED);
        EXPECT_EQ(CleanDisk(L"no such disk", 0, 0, 0, path.Narrow()), 0) << path.name;
    }
    void CallWide(const ReportPath& path)
    {
        EXPECT_EQ(GetDriversW(Image(), LogFile(), path.Wide()), 1) << path.name;
        WriteTestW(path.Wide());
    }

    std::vector<ReportPath> paths_;
};

TEST_F(HostileReports, CostTheReportAlone)
{
    std::set<std::wstring> names = Names();
    names.insert(L"dism.log");
    for (const ReportPath& path : paths_) {
        // Wine's writers take the file's name from uninitialised memory when a path is longer than this.
        if (path.IsLong())
            continue;
        CallNarrow(path);
        CallWide(path);
        if (path.wide && path.wide->starts_with(Path(L"").wstring())) {
            names.insert(std::filesystem::path(*path.wide).filename().wstring());
            // In the code page: a path made of the bytes would take them for UTF-8.
            std::wstring narrow(path.narrow->size() + 1, L'\0');
            MultiByteToWideChar(CP_ACP, 0, path.narrow->c_str(), -1, narrow.data(),
                                static_cast<int>(narrow.size()));
            names.insert(std::filesystem::path(narrow.c_str()).filename().wstring());
        }
    }
    // Whether half a character can be in a file's name is the system's choice.
    for (const std::wstring& name : Names())
        EXPECT_TRUE(names.contains(name)) << testing::PrintToString(name);
    ExpectStillServes();
}

TEST_F(HostileReports, LongPathsReachTheWritersUnchanged)
{
    size_t tried = 0;
    for (const ReportPath& path : paths_) {
        if (!path.IsLong())
            continue;
        ++tried;
        {
            const RecordedWriters writers;
            CallNarrow(path);
            EXPECT_EQ(writers.Files(), std::set<const void*>{path.Narrow()}) << path.name;
        }
        const RecordedWriters writers;
        CallWide(path);
        // A wide form's log lines put their stamp nowhere.
        EXPECT_EQ(writers.Files(), (std::set<const void*>{nullptr, path.Wide()})) << path.name;
    }
    EXPECT_EQ(tried, 2u);
    ExpectStillServes();
}

// --- the system's own answers ---

TEST_F(HostilePaths, OpenersOpenNothing)
{
    for (const auto open : {&OpenVdFile, &OpenPhDrive})
        for (const HostileText& text : HostileTexts()) {
            SetLastError(0);
            EXPECT_EQ(open(text.Wide()), nullptr) << text.name;
            const DWORD error = GetLastError();
            EXPECT_TRUE(error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
                        error == ERROR_INVALID_NAME || error == ERROR_FILENAME_EXCED_RANGE)
                << text.name << ": " << error;
        }
}

TEST_F(HostilePaths, InfInstallAnswersAsTheSystem)
{
    const HMODULE newdev = LoadLibraryW(L"newdev.dll");
    ASSERT_NE(newdev, nullptr);
    using Installer = BOOL(WINAPI*)(HWND, LPCWSTR, DWORD, PBOOL);
    const auto install = reinterpret_cast<Installer>(
        reinterpret_cast<void*>(GetProcAddress(newdev, "DiInstallDriverW")));
    ASSERT_NE(install, nullptr);
    for (const HostileText& text : HostileTexts()) {
        const BOOL expected = install(nullptr, text.Wide(), 0, nullptr);
        EXPECT_EQ(InfInstall(text.Wide()), expected ? 1 : 0) << text.name;
    }
    FreeLibrary(newdev);
}

// Each call starts a disk service of its own, which takes a second: three calls, and every export for every
// name where there is time.
TEST_F(HostilePaths, NoDiskHasSuchAName)
{
    const std::function<void(Text)> calls[] = {
        [&](Text name) { EXPECT_EQ(CleanDisk(name, 1, 1, 1, Result()), 0); },
        [&](Text name) { EXPECT_EQ(OnlineDisk(name), 1); },
        [&](Text name) { EXPECT_EQ(OfflineDisk(name), 1); },
    };
    const std::vector<HostileText>& texts = HostileTexts();
    for (size_t i = 0; i < texts.size(); ++i)
        for (size_t export_number = 0; export_number < std::size(calls); ++export_number) {
            if (!Thorough() && export_number != i)
                continue;
            SCOPED_TRACE(texts[i].name);
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            calls[export_number](texts[i].Wide());
        }
}

} // namespace
} // namespace kestro::test
