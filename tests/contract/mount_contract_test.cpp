// mount_contract_test.cpp - MountWimImage and UnmountWimImage, narrow and wide: every path, every
// call, every write.
#include "contract/mount_case.h"

namespace kestro::test {
namespace {

// Calls test with every combination of good, positive and failing answers until one fails.
template <typename Test>
void ForAllAnswers(std::initializer_list<HRESULT> clean_ups, Test test)
{
    const HRESULT operations[] = {S_OK, S_FALSE, restart_required, file_not_found, smallest};
    const HRESULT shutdowns[] = {S_OK, S_FALSE, not_initialized, open_handles};
    for (const HRESULT initialize : {S_OK, S_FALSE, restart_required, file_not_found})
        for (const HRESULT operation : operations)
            for (const HRESULT clean_up : clean_ups)
                for (const HRESULT first : shutdowns)
                    for (const HRESULT second : shutdowns) {
                        MountCase run;
                        run.initialize = initialize;
                        run.operation = operation;
                        run.clean_up = clean_up;
                        run.shutdown[0] = first;
                        run.shutdown[1] = second;
                        test(run);
                        if (testing::Test::HasFatalFailure())
                            return;
                    }
}

// Two runs written out by hand, as a check of the expectations themselves.
TEST(Mount, NarrowSuccessWrittenOut)
{
    Platform platform;
    RunMount(platform, Form::narrow, {});
    const ExpectedEvents expected{
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
        "DismMountImage(ImageFilePath, MountPath, 1, NULL, 0, 0x0, NULL, NULL, NULL) -> 00000000",
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
    };
    EXPECT_TRUE(SameTranscript(expected, platform.Recorded()));
}

TEST(Mount, WideFailureWrittenOut)
{
    Script script;
    script.last_error = [](size_t events) { return events == 1 ? 5u : 0x80000000u; };
    Platform platform(script);
    MountCase run;
    run.initialize = file_not_found;
    RunMount(platform, Form::wide, run);
    const ExpectedEvents expected{
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
    };
    EXPECT_TRUE(SameTranscript(expected, platform.RecordedWithout({"MultiByte", "_"})));
}

TEST(Mount, EveryCombinationOfAnswers)
{
    for (const Form form : forms)
        ForAllAnswers({S_OK, S_FALSE, open_handles}, [form](const MountCase& run) {
            ASSERT_TRUE(MountDoesWhatItHasTo(form, run));
        });
}

TEST(Unmount, EveryCombinationOfAnswersAndFlags)
{
    // 9999999 is the longest value that shares its key's place, 10000000 the shortest that does
    // not.
    const DWORD all_flags[] = {0,        1,          0x10000,    0x20000,   9999999,
                               10000000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (const Form form : forms)
        for (const DWORD flags : all_flags)
            ForAllAnswers({S_OK}, [form, flags](MountCase run) {
                run.flags = flags;
                ASSERT_TRUE(UnmountDoesWhatItHasTo(form, run));
            });
}

TEST(Unmount, FlagsArriveAsSignedDecimal)
{
    for (const auto& [flags, text] :
         {std::pair{0x80000000u, "-2147483648"}, {0xFFFFFFFFu, "-1"}, {0x10000u, "65536"}}) {
        Platform platform;
        MountCase run;
        run.flags = flags;
        RunUnmount(platform, Form::narrow, run);
        const std::string write =
            std::string(R"(write A ["DISM_UNMOUNT"] "Flags" = ")") + text + R"(" in ResultFile)";
        EXPECT_THAT(platform.Recorded(), testing::Contains(write));
    }
}

TEST(MountAndUnmount, NullArgumentsArePassedOn)
{
    MountCase nothing;
    nothing.image = nothing.directory = nothing.log_file = nullptr;
    nothing.result_file = {nullptr, nullptr};
    for (const Form form : forms)
        for (const HRESULT operation : {S_OK, file_not_found}) {
            MountCase run = nothing;
            run.operation = operation;
            EXPECT_TRUE(MountDoesWhatItHasTo(form, run));
            EXPECT_TRUE(UnmountDoesWhatItHasTo(form, run));
        }
}

} // namespace
} // namespace kestro::test
