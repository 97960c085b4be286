// interview.cpp - every question asked in a process of its own, its answer beside the expected one.
#include "interview.h"

#include "program.h"
#include "questions.h"

#include <fstream>
#include <regex>

#include <windows.h>

namespace kestro::check {
namespace {

using nlohmann::ordered_json;

constexpr std::uint32_t kTenMinutes = 600;

Place PlaceOf(const Folders& folders)
{
    return {folders.check / L"bin" / L"Kestro.dll", folders.work / L"tiny.wim", folders.work};
}

// Two runs differ in the time of day and in where they ran, and ErrorCode is what the profile writers last left
// behind; a machine's disks are its own affair.
std::string Comparable(std::string line, const Folders& folders)
{
    static const std::regex time("\\d\\d-\\d\\d-\\d{4} \\d\\d:\\d\\d:\\d\\d"),
        stamp("^(LastWrite=)\\d{14}$"), error("^(ErrorCode=)\\d+$");
    const std::string work = folders.work.string();
    for (std::size_t at = line.find(work); at != std::string::npos; at = line.find(work))
        line.replace(at, work.size(), "<work>");
    line = std::regex_replace(line, time, "<time>");
    line = std::regex_replace(line, stamp, "$1<time>");
    return std::regex_replace(line, error, "$1<number>");
}

bool CountsDisks(const std::string& line)
{
    return line.starts_with("Pack #: ") || line.starts_with("Disk #: ");
}

template <class Stream>
ordered_json LinesOf(Stream&& stream, const Folders& folders)
{
    ordered_json lines = ordered_json::array();
    for (std::string line; std::getline(stream, line);) {
        if (line.ends_with('\r'))
            line.pop_back();
        if (!CountsDisks(line))
            lines.push_back(Comparable(line, folders));
    }
    return lines;
}

ordered_json AnswerTo(const std::string& question, const Folders& folders)
{
    wchar_t self[MAX_PATH];
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    const std::wstring name(question.begin(), question.end());
    const Run run = RunProgram(self, L"--ask " + name + L" \"" + folders.work.wstring() + L'"',
                               folders.work, kTenMinutes);
    std::ifstream answer(folders.work / (question + ".answer"));
    std::string returned;
    if (!std::getline(answer, returned))
        returned = run.ended
                       ? "the call ended its process with code " + std::to_string(run.exitCode)
                       : "no answer in ten minutes";
    return {
        {"returns", returned},
        {"prints", LinesOf(std::istringstream(run.output), folders)},
        {"result_file", LinesOf(std::ifstream(PlaceOf(folders).ResultFile(question)), folders)}};
}

// Where Wine's own service answers otherwise than Windows', the answer says so.
ordered_json WantedHere(ordered_json answer, bool wine)
{
    const ordered_json other = answer.value("under_wine", ordered_json::object());
    answer.erase("under_wine");
    if (wine)
        answer.update(other);
    return answer;
}

} // namespace

ordered_json Interview(const Folders& folders, const ordered_json& expected, bool wine,
                       const Progress& progress)
{
    std::filesystem::create_directories(folders.work / L"mount");
    std::filesystem::copy_file(folders.check / L"tiny.wim", PlaceOf(folders).image);
    std::ofstream(folders.work / L"present.txt") << "a file\n";

    ordered_json all = ordered_json::array();
    for (const std::string& question : QuestionNames()) {
        progress(question);
        const ordered_json wanted = WantedHere(expected.at(question), wine);
        const ordered_json found = AnswerTo(question, folders);
        all.push_back({{"question", question},
                       {"passed", found == wanted},
                       {"expected", wanted},
                       {"found", found}});
    }
    return all;
}

int AnswerOne(const std::string& question, const Folders& folders)
{
    const std::string returned = Ask(question, PlaceOf(folders));
    std::ofstream(folders.work / (question + ".answer")) << returned << '\n';
    return 0;
}

} // namespace kestro::check
