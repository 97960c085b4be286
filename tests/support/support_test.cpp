// support_test.cpp - the test support itself: that it sees differences and leaves nothing behind.
#include "support/expectation.h"

#include <filesystem>
#include <stdexcept>

namespace kestro::test {
namespace {

TEST(SameTranscript, SeesOrderMissingAndExtraEvents)
{
    const ExpectedEvents expected{"a", "b", "c"};
    EXPECT_TRUE(SameTranscript(expected, {"a", "b", "c"}));
    EXPECT_FALSE(SameTranscript(expected, {"a", "c", "b"}));
    EXPECT_FALSE(SameTranscript(expected, {"a", "b"}));
    EXPECT_FALSE(SameTranscript(expected, {"a", "b", "c", "c"}));
    EXPECT_FALSE(SameTranscript(expected, {}));
    EXPECT_FALSE(SameTranscript({}, {"a"}));
}

TEST(SameTranscript, ShowsBothColumnsOfAMismatch)
{
    const std::string message = SameTranscript({"a", "b"}, {"a", "x"}).message();
    EXPECT_THAT(message, testing::HasSubstr("b "));
    EXPECT_THAT(message, testing::HasSubstr("| (nothing)"));
    EXPECT_THAT(message, testing::HasSubstr("(nothing)"));
    EXPECT_THAT(message, testing::HasSubstr("| x"));
}

TEST(Expectation, ShortKeyWithALongValueIsNeitherOfTheTwo)
{
    Expectation call(Form::wide);
    call.Write("DISM_UNMOUNT", "Flags", "65536000");
    const ExpectedEvent& write = call.Events()[6];
    const std::string after = R"( = "65536000" in ResultFile)";
    EXPECT_TRUE(write.Meets(R"(write W ["DISM_UNMOUNT"] "?")" + after));
    EXPECT_TRUE(write.Meets(R"(write W ["DISM_UNMOUNT"] "seven77")" + after));
    EXPECT_FALSE(write.Meets(R"(write W ["DISM_UNMOUNT"] "Flags")" + after));
    EXPECT_FALSE(write.Meets(R"(write W ["DISM_UNMOUNT"] "65536000")" + after));
    EXPECT_FALSE(write.Meets(R"(write W ["DISM_UNMOUNT"] "eight888")" + after));
    EXPECT_FALSE(write.Meets(R"(write W ["DISM_UNMOUNT"] "")" + after));
    EXPECT_FALSE(write.Meets(R"(write W ["DISM_UNMOUNT"] NULL)" + after));
    EXPECT_FALSE(write.Meets(R"(write A ["DISM_UNMOUNT"] "?")" + after));
}

TEST(Platform, LeavesTheImportsAsTheyWere)
{
    const std::vector<Import> imports = ImportsOf(KestroLibrary::Get().Module());
    std::vector<void*> before, during, after;
    for (const Import& import : imports)
        before.push_back(*import.slot);
    {
        const Platform platform;
        for (const Import& import : imports)
            during.push_back(*import.slot);
    }
    for (const Import& import : imports)
        after.push_back(*import.slot);
    EXPECT_EQ(before, after);
    for (size_t i = 0; i < imports.size(); ++i)
        EXPECT_TRUE(imports[i].dll != "dismapi.dll" || before[i] != during[i]) << imports[i].name;
}

TEST(Platform, TellsAnArgumentFromACopyOfIt)
{
    Platform platform;
    const std::string path = "C:\\result.ini", copy = path;
    platform.Name(path.c_str(), "ResultFile");
    EXPECT_EQ(platform.Show(path.c_str()), "ResultFile");
    EXPECT_EQ(platform.Show(copy.c_str()), R"("C:\result.ini")");
    EXPECT_EQ(platform.Show(static_cast<const char*>(nullptr)), "NULL");
}

TEST(Library, ReachesTheTrapWhereNoDoubleIs)
{
    wchar_t program[MAX_PATH], dism_api[MAX_PATH];
    KestroLibrary::Get();
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    ASSERT_NE(GetModuleFileNameW(GetModuleHandleW(L"DismApi.dll"), dism_api, MAX_PATH), 0u);
    EXPECT_EQ(std::filesystem::path(dism_api).parent_path(),
              std::filesystem::path(program).parent_path());
}

TEST(Library, MissingExportEndsTheTest)
{
    EXPECT_THROW(KestroLibrary::Get().Find<void (*)()>("NoSuchExport"), std::runtime_error);
}

} // namespace
} // namespace kestro::test
