// real_files_test.cpp - the ResultFile as the system's own profile writers leave it. The servicing
// calls and the clock are scripted, everything that writes is real.
#include "contract/mount_case.h"
#include "contract/session_case.h"
#include "real_files/result_folder.h"

#include <algorithm>

namespace kestro::test {
namespace {

const std::vector<std::string> writers{"WritePrivateProfileStringA",
                                       "WritePrivateProfileStringW",
                                       "MultiByteToWideChar",
                                       "WideCharToMultiByte",
                                       "SysAllocString",
                                       "SysFreeString"};

Script OnDay(int day)
{
    Script script;
    script.clock = [day](int reading) { return LocalTime(2021, 3, day, 14, 0, reading); };
    script.last_error = [](size_t) { return 5ul; };
    return script;
}

// One call with real writers; gives what it returned.
template <typename Run>
std::string Returned(const Script& script, Run run)
{
    Platform platform(script, writers);
    run(platform);
    return platform.Recorded().back();
}

std::string Mount(Form form, const ResultFile& file, int day = 5, HRESULT operation = S_OK)
{
    return Returned(OnDay(day), [&](Platform& platform) {
        MountCase run;
        run.result_file = file;
        run.operation = operation;
        RunMount(platform, form, run);
    });
}

std::string Unmount(Form form, const ResultFile& file, DWORD flags = 1)
{
    return Returned(OnDay(5), [&](Platform& platform) {
        MountCase run;
        run.result_file = file;
        run.flags = flags;
        RunUnmount(platform, form, run);
    });
}

// The system's own settings file takes the stamps of the wide form's log lines.
std::string SystemStamp()
{
    char stamp[64];
    GetProfileStringA("Status", "LastWrite", "none", stamp, sizeof stamp);
    return stamp;
}

void ClearSystemSection(const char* section)
{
    WriteProfileStringA(section, nullptr, nullptr);
}

class RealFiles : public testing::Test {
  protected:
    void SetUp() override { ClearSystemSection("Status"); }
    void TearDown() override { ClearSystemSection("Status"); }
};

const Lines mounted_narrow{
    "[DISM_INITIALIZE]",
    "Result=OK",
    "[Status]",
    "LastWrite=20210305140005",
    "[Log]",
    "Righe=3",
    "2 - 05-03-2021 14:00:01=Mounting image...",
    "3 - 05-03-2021 14:00:03=Image mounted successfully.",
    "[DISM_MOUNT]",
    "Result=OK",
};

const Lines mounted_wide{
    "[DISM_INITIALIZE]",
    "OK=OK",
    "[Status]",
    "LastWrite=20210305140005",
    "[Log]",
    "Righe=3",
    "2 - 05-03-2021 14:00:01=Mounting image...",
    "3 - 05-03-2021 14:00:03=Image mounted successfully.",
    "[DISM_MOUNT]",
    "OK=OK",
};

const Lines& Mounted(Form form)
{
    return form == Form::narrow ? mounted_narrow : mounted_wide;
}

TEST_F(RealFiles, NewFileOfASuccessfulMount)
{
    for (const Form form : forms) {
        const ResultFolder folder;
        const auto file = folder.Path(L"result.ini");
        Mount(form, ResultPath(file));
        EXPECT_EQ(ReadLines(file), Mounted(form)) << NameOf(form);
    }
}

TEST_F(RealFiles, NewFileOfAFailedMount)
{
    const ResultFolder folder;
    const auto narrow = folder.Path(L"narrow.ini"), wide = folder.Path(L"wide.ini");
    EXPECT_EQ(Mount(Form::narrow, ResultPath(narrow), 5, file_not_found), "returns 1");
    EXPECT_EQ(Mount(Form::wide, ResultPath(wide), 5, file_not_found), "returns 0");

    Lines expected{
        "[DISM_INITIALIZE]",
        "Result=OK",
        "[Status]",
        "LastWrite=20210305140008",
        "[Log]",
        "Righe=4",
        "2 - 05-03-2021 14:00:01=Mounting image...",
        "3 - 05-03-2021 14:00:03=DismMountImage Failed. Following error code.",
        "4 - 05-03-2021 14:00:05=-2147024894",
        "[DISM_MOUNT]",
        "ErrorCode=5",
        "Result=ERR",
    };
    EXPECT_EQ(ReadLines(narrow), expected);
    expected[1] = "OK=OK";
    expected.back() = "ERR=ERR";
    EXPECT_EQ(ReadLines(wide), expected);
}

TEST_F(RealFiles, NewFileOfAnUnmount)
{
    const ResultFolder folder;
    const auto narrow = folder.Path(L"narrow.ini"), wide = folder.Path(L"wide.ini");
    Unmount(Form::narrow, ResultPath(narrow));
    Unmount(Form::wide, ResultPath(wide));

    const Lines expected{
        "[DISM_INITIALIZE]",
        "Result=OK",
        "[Status]",
        "LastWrite=20210305140007",
        "[Log]",
        "Righe=3",
        "2 - 05-03-2021 14:00:01=Unmounting image...",
        "3 - 05-03-2021 14:00:04=Image unmounted successfully.",
        "[DISM_UNMOUNT]",
        "Flags=1",
        "Result=OK",
        "[DISM_SHUTDOWN]",
        "Result=OK",
    };
    EXPECT_EQ(ReadLines(narrow), expected);
    Lines expected_wide = expected;
    for (std::string& line : expected_wide)
        line = line == "Result=OK" ? "OK=OK" : line == "Flags=1" ? "1=1" : line;
    EXPECT_EQ(ReadLines(wide), expected_wide);
}

TEST_F(RealFiles, WideLinesStampTheSystemsFileOnly)
{
    const ResultFolder folder;
    const auto file = folder.Path(L"result.ini");
    Mount(Form::narrow, ResultPath(folder.Path(L"narrow.ini")));
    EXPECT_EQ(SystemStamp(), "none");
    Mount(Form::wide, ResultPath(file));
    EXPECT_EQ(SystemStamp(), "20210305140004");
}

TEST_F(RealFiles, SecondCallKeepsTheLinesAndOverwritesTheKeys)
{
    for (const Form form : forms) {
        const ResultFolder folder;
        const auto file = folder.Path(L"result.ini");
        Mount(form, ResultPath(file), 5);
        Mount(form, ResultPath(file), 5);
        EXPECT_EQ(ReadLines(file), Mounted(form)) << "the same seconds: the same keys";

        Mount(form, ResultPath(file), 6);
        Lines expected = Mounted(form);
        expected[3] = "LastWrite=20210306140005";
        expected.insert(expected.begin() + 8,
                        {"2 - 06-03-2021 14:00:01=Mounting image...",
                         "3 - 06-03-2021 14:00:03=Image mounted successfully."});
        EXPECT_EQ(ReadLines(file), expected);
    }
}

TEST_F(RealFiles, EarlierOutcomeStaysInASectionThatIsNotReached)
{
    const ResultFolder folder;
    const auto file = folder.Path(L"result.ini");
    Mount(Form::narrow, ResultPath(file));
    Returned(OnDay(6), [&](Platform& platform) {
        const ResultPath path(file);
        MountCase run;
        run.result_file = path;
        run.initialize = not_initialized;
        RunMount(platform, Form::narrow, run);
    });
    const Lines lines = ReadLines(file);
    const auto section = std::find(lines.begin(), lines.end(), "[DISM_MOUNT]");
    ASSERT_NE(section, lines.end());
    EXPECT_EQ(section[1], "Result=OK");
    EXPECT_EQ(lines[1], "Result=ERR");
}

TEST_F(RealFiles, UnrelatedContentStays)
{
    for (const Form form : forms) {
        const ResultFolder folder;
        const auto file = folder.Path(L"result.ini");
        WriteBytes(file, "; a host's own notes\r\n[Host]\r\nJob=42\r\n\r\n[log]\r\nrighe=99\r\n");
        Mount(form, ResultPath(file));
        const Lines lines = ReadLines(file);
        // Names compare without case and keep the case of their first writing.
        for (const char* line : {"; a host's own notes", "[Host]", "Job=42", "[log]", "righe=3",
                                 "2 - 05-03-2021 14:00:01=Mounting image..."})
            EXPECT_THAT(lines, testing::Contains(line)) << NameOf(form);
        EXPECT_THAT(lines, testing::Not(testing::Contains("[Log]")));
    }
}

TEST_F(RealFiles, Utf16FileStaysUtf16)
{
    for (const Form form : forms) {
        const ResultFolder folder;
        const auto file = folder.Path(L"result.ini");
        WriteBytes(file, "\xFF\xFE");
        Mount(form, ResultPath(file));
        EXPECT_EQ(ReadWideLines(file), Mounted(form)) << NameOf(form);
    }
}

TEST_F(RealFiles, OddPaths)
{
    for (const Form form : forms)
        for (const wchar_t* name : {L"a folder with spaces", L"r\u00E9sultats", L"a;b=c [d]"}) {
            const ResultFolder folder(name);
            const auto file = folder.Path(L"my result.file.ini");
            Mount(form, ResultPath(file));
            EXPECT_EQ(ReadLines(file), Mounted(form)) << NameOf(form);
        }
    // Only the wide form reaches a folder whose name the ANSI code page does not have.
    const ResultFolder folder(L"\u7D50\u679C");
    const auto file = folder.Path(L"result.ini");
    Mount(Form::wide, ResultPath(file));
    EXPECT_EQ(ReadLines(file), mounted_wide);
}

TEST_F(RealFiles, UnwritablePathCostsTheReportAlone)
{
    for (const Form form : forms) {
        const unsigned success = form == Form::narrow ? 0 : 1;
        const ResultFolder folder;
        const auto read_only = folder.Path(L"read-only.ini");
        WriteBytes(read_only, "[Host]\r\nJob=42\r\n");
        SetFileAttributesW(read_only.c_str(), FILE_ATTRIBUTE_READONLY);
        for (const auto& file :
             {folder.Path(L"missing\\result.ini"), folder.Path(L""), read_only}) {
            const ResultPath path(file);
            MountCase run;
            run.result_file = path;
            Platform platform(OnDay(5), writers);
            RunMount(platform, form, run);
            EXPECT_EQ(platform.RecordedWithout({"_"}),
                      (Events{"DismInitialize(2, LogFilePath, NULL) -> 00000000",
                              "DismMountImage(ImageFilePath, MountPath, 1, NULL, 0, 0x0, NULL, "
                              "NULL, NULL) -> 00000000",
                              "DismShutdown() -> 00000000", Format("returns %u", success)}));
        }
        EXPECT_FALSE(std::filesystem::exists(folder.Path(L"missing")));
        SetFileAttributesW(read_only.c_str(), FILE_ATTRIBUTE_NORMAL);
    }
}

TEST_F(RealFiles, NullPathCostsTheReportAlone)
{
    // The writers' own answer to no path is the system's settings file.
    EXPECT_EQ(Mount(Form::narrow, {nullptr, nullptr}), "returns 0");
    EXPECT_EQ(Mount(Form::wide, {nullptr, nullptr}), "returns 1");
    for (const char* section : {"DISM_INITIALIZE", "DISM_MOUNT", "Log"})
        ClearSystemSection(section);
}

// --- driver list ---

TEST_F(RealFiles, NullEntryOfANarrowListErasesItsSections)
{
    const ResultFolder folder;
    const auto file = folder.Path(L"result.ini");
    const ResultPath path(file);
    SessionCase run;
    run.result_file = path;
    DriverList list{{L"C:\\a.inf", L"C:\\b.inf", nullptr, L"C:\\d.inf", L"C:\\e.inf", L"C:\\f.inf",
                     L"C:\\g.inf", L"C:\\h.inf"},
                    {file_not_found, S_OK, file_not_found, S_OK, S_OK, S_OK, file_not_found}};
    Returned(OnDay(5), [&](Platform& platform) { RunList(platform, Form::narrow, run, list); });

    Lines drivers;
    bool inside = false;
    for (const std::string& line : ReadLines(file)) {
        if (line.starts_with('['))
            inside = line.starts_with("[DISM_ADDDRIVER");
        if (inside)
            drivers.push_back(line);
    }
    const Lines expected{"[DISM_ADDDRIVER]",
                         "C:\\d.inf=OK",
                         "C:\\e.inf=OK",
                         "C:\\f.inf=OK",
                         "C:\\g.inf=OK",
                         "C:\\h.inf=OK",
                         "[DISM_ADDDRIVER_ERRORS]",
                         "C:\\g.inf=5"};
    EXPECT_EQ(drivers, expected);
}

// --- write test ---

TEST_F(RealFiles, WriteTestSharesTheStampsSection)
{
    const auto& library = KestroLibrary::Get();
    for (const Form form : forms) {
        const ResultFolder folder;
        const auto file = folder.Path(L"result.ini");
        const ResultPath path(file);
        const auto write_test = [&](int day) {
            Platform platform(OnDay(day), writers);
            if (form == Form::narrow)
                library.Find<void (*)(const char*)>("WriteTest")(ResultFile(path).narrow);
            else
                library.Find<void (*)(const wchar_t*)>("WriteTestW")(ResultFile(path).wide);
        };
        write_test(5);
        // The wide form's last stamp goes elsewhere.
        Lines expected{
            "[KESTRO_TEST]",
            "TEST=TEST",
            "[Status]",
            form == Form::narrow ? "LastWrite=20210305140003" : "LastWrite=20210305140001",
            "Status=C",
            "[Log]",
            "Righe=2",
            "2 - 05-03-2021 14:00:02=This is a test created by Kestro.dll",
        };
        EXPECT_EQ(ReadLines(file), expected) << NameOf(form);

        write_test(6);
        expected.push_back("2 - 06-03-2021 14:00:02=This is a test created by Kestro.dll");
        expected[3] =
            form == Form::narrow ? "LastWrite=20210306140003" : "LastWrite=20210306140001";
        EXPECT_EQ(ReadLines(file), expected) << NameOf(form);
    }
}

} // namespace
} // namespace kestro::test
