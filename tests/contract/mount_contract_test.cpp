// mount_contract_test.cpp - MountWimImage and UnmountWimImage, narrow and wide: every path, every
// call, every write.
#include "support/expectation.h"

#include <initializer_list>

namespace kestro::test {
namespace {

constexpr HRESULT file_not_found = static_cast<HRESULT>(0x80070002);
constexpr HRESULT not_initialized = static_cast<HRESULT>(0xC0040001);
constexpr HRESULT open_handles = static_cast<HRESULT>(0xC004000A);
constexpr HRESULT smallest = static_cast<HRESULT>(0x80000000);
constexpr HRESULT restart_required = 3010;

const wchar_t image[] = L"C:\\images\\install one.wim";
const wchar_t directory[] = L"C:\\mount";
const wchar_t log_file[] = L"C:\\logs\\dism.log";
const ResultFile result_file{"C:\\out\\result.ini", L"C:\\out\\result.ini"};

// The results of the platform calls of one run; the shutdown may be asked for twice.
struct Answers {
    HRESULT initialize = S_OK;
    HRESULT operation = S_OK;
    HRESULT clean_up = S_OK; // the unmount of a mount that is taken back
    HRESULT shutdown[2] = {S_OK, S_OK};
};

unsigned SuccessValue(Form form, HRESULT shutdown)
{
    return form == Form::wide || shutdown != S_OK ? 1 : 0;
}

unsigned FailureValue(Form form)
{
    return form == Form::narrow ? 1 : 0;
}

constexpr char initialize_call[] = "DismInitialize(2, LogFilePath, NULL)";
constexpr char mount_call[] =
    "DismMountImage(ImageFilePath, MountPath, 1, NULL, 0, 0x0, NULL, NULL, NULL)";
constexpr char discard_call[] = "DismUnmountImage(MountPath, 0x1, NULL, NULL, NULL)";

// --- mount ---

void ExpectMountExit(Expectation& call, const std::string& section, HRESULT failure, bool mounted,
                     HRESULT unmount, HRESULT shutdown)
{
    call.Write(section, "Result", "ERR");
    if (mounted) {
        call.Call(discard_call, unmount);
        if (unmount < 0)
            call.ReportCleanUp("DISM_UNMOUNT", "DismUnmountImage", failure);
    }
    call.Call("DismShutdown()", shutdown);
    if (shutdown < 0)
        call.ReportCleanUp("DISM_SHUTDOWN", "DismShutdown", failure);
    call.ReturnCodeLine(failure).Returns(FailureValue(call.GetForm()));
}

Expectation ExpectMount(Form form, const Answers& answers, const Script& script = {})
{
    Expectation call(form, script);
    call.Call(initialize_call, answers.initialize);
    if (answers.initialize < 0) {
        call.ReportFailure("DISM_INITIALIZE", "DismInitialize", answers.initialize);
        ExpectMountExit(call, "DISM_INITIALIZE", answers.initialize, false, S_OK,
                        answers.shutdown[0]);
        return call;
    }
    call.Write("DISM_INITIALIZE", "Result", "OK");
    call.Log("Mounting image...");
    call.Call(mount_call, answers.operation);
    if (answers.operation < 0) {
        call.ReportFailure("DISM_MOUNT", "DismMountImage", answers.operation);
        ExpectMountExit(call, "DISM_MOUNT", answers.operation, false, S_OK, answers.shutdown[0]);
        return call;
    }
    call.Log("Image mounted successfully.").Write("DISM_MOUNT", "Result", "OK");
    call.Call("DismShutdown()", answers.shutdown[0]);
    if (answers.shutdown[0] < 0) {
        call.ReportFailure("DISM_SHUTDOWN", "DismShutdown", answers.shutdown[0]);
        ExpectMountExit(call, "DISM_SHUTDOWN", answers.shutdown[0], true, answers.clean_up,
                        answers.shutdown[1]);
        return call;
    }
    return call.Returns(SuccessValue(form, answers.shutdown[0]));
}

void NameArguments(Platform& platform)
{
    platform.Name(image, "ImageFilePath");
    platform.Name(directory, "MountPath");
    platform.Name(log_file, "LogFilePath");
    platform.Name(result_file.narrow, "ResultFile");
    platform.Name(result_file.wide, "ResultFile");
}

void RunMount(Platform& platform, Form form, const Answers& answers)
{
    NameArguments(platform);
    platform.Answer("DismInitialize", {answers.initialize});
    platform.Answer("DismMountImage", {answers.operation});
    platform.Answer("DismUnmountImage", {answers.clean_up});
    platform.Answer("DismShutdown", {answers.shutdown[0], answers.shutdown[1]});
    platform.Returned(
        KestroLibrary::Get().Call("MountWimImage", form, result_file, image, directory, log_file));
}

testing::AssertionResult MountDoesWhatItHasTo(Form form, const Answers& answers,
                                              const Script& script = {})
{
    Platform platform(script);
    RunMount(platform, form, answers);
    return SameTranscript(ExpectMount(form, answers, script).Events(), platform.Recorded());
}

// --- unmount ---

void ExpectUnmountExit(Expectation& call, const std::string& section, HRESULT failure,
                       HRESULT shutdown)
{
    call.Write(section, "Result", "ERR");
    call.Call("DismShutdown()", shutdown);
    if (shutdown < 0)
        call.ReportFailure("VHDX_RESTORE", "DismShutdown", shutdown);
    call.ReturnCodeLine(failure).Returns(FailureValue(call.GetForm()));
}

Expectation ExpectUnmount(Form form, DWORD flags, const Answers& answers, const Script& script = {})
{
    Expectation call(form, script);
    call.Call(initialize_call, answers.initialize);
    if (answers.initialize < 0) {
        call.ReportFailure("DISM_INITIALIZE", "DismInitialize", answers.initialize);
        ExpectUnmountExit(call, "DISM_INITIALIZE", answers.initialize, answers.shutdown[0]);
        return call;
    }
    call.Write("DISM_INITIALIZE", "Result", "OK");
    call.Log("Unmounting image...");
    call.Write("DISM_UNMOUNT", "Flags", Format("%d", static_cast<int>(flags)));
    call.Call(Format("DismUnmountImage(MountPath, 0x%lX, NULL, NULL, NULL)", flags),
              answers.operation);
    if (answers.operation < 0) {
        call.ReportFailure("DISM_UNMOUNT", "DismUnmountImage", answers.operation);
        ExpectUnmountExit(call, "DISM_UNMOUNT", answers.operation, answers.shutdown[0]);
        return call;
    }
    call.Log("Image unmounted successfully.").Write("DISM_UNMOUNT", "Result", "OK");
    call.Call("DismShutdown()", answers.shutdown[0]);
    if (answers.shutdown[0] < 0) {
        call.ReportFailure("DISM_SHUTDOWN", "DismShutdown", answers.shutdown[0]);
        ExpectUnmountExit(call, "DISM_SHUTDOWN", answers.shutdown[0], answers.shutdown[1]);
        return call;
    }
    call.Write("DISM_SHUTDOWN", "Result", "OK");
    return call.Returns(SuccessValue(form, answers.shutdown[0]));
}

testing::AssertionResult UnmountDoesWhatItHasTo(Form form, DWORD flags, const Answers& answers,
                                                const Script& script = {})
{
    Platform platform(script);
    NameArguments(platform);
    platform.Answer("DismInitialize", {answers.initialize});
    platform.Answer("DismUnmountImage", {answers.operation});
    platform.Answer("DismShutdown", {answers.shutdown[0], answers.shutdown[1]});
    platform.Returned(KestroLibrary::Get().Call("UnmountWimImage", form, result_file, directory,
                                                flags, log_file));
    return SameTranscript(ExpectUnmount(form, flags, answers, script).Events(),
                          platform.Recorded());
}

// Calls test with every combination of good, positive and failing answers.
template <typename Test>
void ForAllAnswers(Test test)
{
    const HRESULT operations[] = {S_OK, S_FALSE, restart_required, file_not_found, smallest};
    const HRESULT shutdowns[] = {S_OK, S_FALSE, not_initialized, open_handles};
    for (const HRESULT initialize : {S_OK, S_FALSE, restart_required, file_not_found})
        for (const HRESULT operation : operations)
            for (const HRESULT clean_up : {S_OK, S_FALSE, open_handles})
                for (const HRESULT first : shutdowns)
                    for (const HRESULT second : shutdowns)
                        test(Answers{initialize, operation, clean_up, {first, second}});
}

std::string Describe(const Answers& answers)
{
    return Format("initialize %08X, operation %08X, clean-up %08X, shutdown %08X %08X",
                  static_cast<unsigned>(answers.initialize),
                  static_cast<unsigned>(answers.operation), static_cast<unsigned>(answers.clean_up),
                  static_cast<unsigned>(answers.shutdown[0]),
                  static_cast<unsigned>(answers.shutdown[1]));
}

// --- tests ---

// One run of each form written out by hand, as a check of the expectations themselves.
TEST(Mount, NarrowSuccessWrittenOut)
{
    Platform platform;
    RunMount(platform, Form::narrow, {});
    EXPECT_TRUE(SameTranscript(
        {
            "DismInitialize(2, LogFilePath, NULL) -> 00000000",
            R"(write A ["DISM_INITIALIZE"] "Result" = "OK" in ResultFile)",
            "_time64",
            "_localtime64",
            R"(write A ["Status"] "LastWrite" = "20210305140000" in ResultFile)",
            "_time64",
            "_localtime64",
            R"(write A ["Log"] "Righe" = "2" in ResultFile)",
            R"(write A ["Log"] "2 - 05-03-2021 14:00:01" = "Mounting image..." in ResultFile)",
            "_time64",
            "_localtime64",
            R"(write A ["Status"] "LastWrite" = "20210305140002" in ResultFile)",
            "DismMountImage(ImageFilePath, MountPath, 1, NULL, 0, 0x0, NULL, NULL, NULL) -> "
            "00000000",
            "_time64",
            "_localtime64",
            R"(write A ["Log"] "Righe" = "3" in ResultFile)",
            R"(write A ["Log"] "3 - 05-03-2021 14:00:03" = "Image mounted successfully." in )"
            "ResultFile",
            "_time64",
            "_localtime64",
            R"(write A ["Status"] "LastWrite" = "20210305140004" in ResultFile)",
            R"(write A ["DISM_MOUNT"] "Result" = "OK" in ResultFile)",
            "_time64",
            "_localtime64",
            R"(write A ["Status"] "LastWrite" = "20210305140005" in ResultFile)",
            "DismShutdown() -> 00000000",
            "returns 0",
        },
        platform.Recorded()));
}

TEST(Mount, WideFailureWrittenOut)
{
    Script script;
    script.last_error = [](size_t events) { return events == 1 ? 5u : 0x80000000u; };
    Platform platform(script);
    RunMount(platform, Form::wide, {.initialize = file_not_found});
    Events writes;
    for (const std::string& event : platform.Recorded())
        if (!event.starts_with("MultiByte") && !event.starts_with("_"))
            writes.push_back(event);
    EXPECT_TRUE(SameTranscript(
        {
            "DismInitialize(2, LogFilePath, NULL) -> 80070002",
            R"(write W ["Log"] "Righe" = "2" in ResultFile)",
            R"(write W ["Log"] "2 - 05-03-2021 14:00:00" = )"
            R"("DismInitialize Failed. Following error code." in ResultFile)",
            R"(write A ["Status"] "LastWrite" = "20210305140001" in NULL)",
            R"(write W ["Log"] "Righe" = "3" in ResultFile)",
            R"(write W ["Log"] "3 - 05-03-2021 14:00:02" = "-2147024894" in ResultFile)",
            R"(write A ["Status"] "LastWrite" = "20210305140003" in NULL)",
            "GetLastError",
            R"(write W ["DISM_INITIALIZE"] "ErrorCode" = "-2147483648" in ResultFile)",
            R"(write W ["Status"] "LastWrite" = "20210305140004" in ResultFile)",
            R"(write W ["DISM_INITIALIZE"] "ERR" = "ERR" in ResultFile)",
            R"(write W ["Status"] "LastWrite" = "20210305140005" in ResultFile)",
            "DismShutdown() -> 00000000",
            R"(console wide "Return code is: 80070002\n")",
            "returns 0",
        },
        writes));
}

TEST(Mount, EveryCombinationOfAnswers)
{
    for (const Form form : forms)
        ForAllAnswers([form](const Answers& answers) {
            ASSERT_TRUE(MountDoesWhatItHasTo(form, answers))
                << NameOf(form) << ": " << Describe(answers);
        });
}

TEST(Unmount, EveryCombinationOfAnswersAndFlags)
{
    for (const Form form : forms)
        for (const DWORD flags : {0ul, 1ul, 0x10000ul, 0x20000ul, 0x7FFFFFFFul, 0x80000000ul,
                                  0xFFFFFFFFul, 0x98967Ful, 0x989680ul})
            ForAllAnswers([form, flags](const Answers& answers) {
                if (answers.clean_up != S_OK)
                    return;
                ASSERT_TRUE(UnmountDoesWhatItHasTo(form, flags, answers))
                    << NameOf(form) << ", flags " << flags << ": " << Describe(answers);
            });
}

} // namespace
} // namespace kestro::test
