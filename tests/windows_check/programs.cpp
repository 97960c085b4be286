// programs.cpp - the tests that bring their own doubles, and what the library prints.
#include "programs.h"

#include "program.h"

#include <fstream>
#include <iterator>

namespace kestro::check {
namespace {

using nlohmann::ordered_json;

constexpr std::uint32_t kHalfAnHour = 1800;

const wchar_t* const kPrograms[] = {
    L"mount_contract_test",  L"session_contract_test",
    L"report_contract_test", L"exception_contract_test",
    L"device_contract_test", L"disk_contract_test",
    L"matrix_test",          L"real_files_test",
    L"surface_test",         L"companion_reading_test",
};

std::string Narrow(const std::wstring& text)
{
    return {text.begin(), text.end()}; // the names above
}

// What a test program says of itself in its own JSON report.
ordered_json OutcomeOf(const ordered_json& report)
{
    ordered_json failed = ordered_json::array();
    for (const ordered_json& suite : report.at("testsuites"))
        for (const ordered_json& test : suite.at("testsuite"))
            if (test.contains("failures"))
                failed.push_back({{"test", suite.at("name").get<std::string>() + '.' +
                                               test.at("name").get<std::string>()},
                                  {"message", test.at("failures").at(0).at("failure")}});
    return {{"tests", report.at("tests")}, {"failed", failed}};
}

ordered_json RunTests(const std::wstring& name, const Folders& folders)
{
    const auto written = folders.work / (name + L".json");
    const Run run = RunProgram(folders.check / L"tests" / L"bin" / (name + L".exe"),
                               L"--gtest_brief=1 \"--gtest_output=json:" + written.wstring() + L'"',
                               folders.work, kHalfAnHour);
    ordered_json outcome{{"tests", 0}, {"failed", ordered_json::array()}};
    std::ifstream file(written);
    const ordered_json report = ordered_json::parse(file, nullptr, false);
    if (!report.is_discarded())
        outcome = OutcomeOf(report);
    const bool passed = run.ended && run.exitCode == 0 && outcome.at("tests") > 0;
    ordered_json all{{"program", Narrow(name)}, {"passed", passed}};
    all.update(outcome);
    if (!passed && outcome.at("failed").empty())
        all["ended"] = run.ended ? "with code " + std::to_string(run.exitCode) : "not in time";
    return all;
}

struct Printed {
    const wchar_t* call;
    const wchar_t* image;
    std::uint32_t value;
    const char* text;
};

#define LISTING                                                                                    \
    "\r\n\r\nThese are the third party drivers from the image:\r\n\r\n"                            \
    "Driver Package 0: oem0.inf\r\nOriginal file name: C:\\store\\first.inf\r\n\r\n"               \
    "Driver Package 1: oem1.inf\r\nOriginal file name: C:\\store\\100% %s %x.inf\r\n\r\n"

// What the double beside the probe makes the functions print, to the byte.
const Printed kPrinted[] = {
    {L"list", L"C:\\image", 0, LISTING},
    {L"listw", L"C:\\image", 1, LISTING},
    {L"list", L"fail 80070002", 1, "Return code is: 80070002\r\n"},
    {L"listw", L"fail 80070002", 0, "Return code is: 80070002\r\n"},
    {L"list", L"fail C0040001", 1, "Return code is: c0040001\r\n"},
    {L"list", L"fail FFFFFFFF", 1, "Return code is: ffffffff\r\n"},
    {L"info", L"C:\\image", 1,
     "DismGetDriverInfo Failed: 80070002\r\nReturn code is: 80070002\r\n"},
};

} // namespace

ordered_json RunTestPrograms(const Folders& folders, const Progress& progress)
{
    ordered_json all = ordered_json::array();
    for (const wchar_t* name : kPrograms) {
        progress(Narrow(name));
        all.push_back(RunTests(name, folders));
    }
    return all;
}

ordered_json CompareWhatIsPrinted(const Folders& folders)
{
    ordered_json all = ordered_json::array();
    const auto library = folders.check / L"bin" / L"Kestro.dll";
    for (const Printed& expected : kPrinted) {
        const Run run =
            RunProgram(folders.check / L"tests" / L"console" / L"trace_probe.exe",
                       L'"' + library.wstring() + L"\" " + expected.call + L" \"" + expected.image +
                           L"\" \"" + (folders.work / L"printed.ini").wstring() + L'"',
                       folders.work, 60);
        all.push_back({{"call", Narrow(expected.call) + ' ' + Narrow(expected.image)},
                       {"passed", run.output == expected.text && run.exitCode == expected.value},
                       {"expected", {{"returns", expected.value}, {"printed", expected.text}}},
                       {"found", {{"returns", run.exitCode}, {"printed", run.output}}}});
    }
    return all;
}

} // namespace kestro::check
