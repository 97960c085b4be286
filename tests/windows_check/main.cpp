// main.cpp - kestro-check.exe, which check.cmd runs: how Kestro fares on this system.
//   kestro-check [--questions] REPORT        writes REPORT.txt and REPORT.json; --questions leaves the tests out
//   kestro-check --ask QUESTION FOLDER       one question's call; the check runs itself this way
#include "interview.h"
#include "report.h"
#include "system_state.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>

#include <windows.h>

namespace kestro::check {
namespace {

using nlohmann::ordered_json;

std::filesystem::path OwnFolder()
{
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
}

// Removed at the end; the servicing API keeps nothing of it once its image is unmounted.
class WorkFolder {
  public:
    WorkFolder()
        : path(std::filesystem::temp_directory_path() /
               ("kestro-check-" + std::to_string(GetCurrentProcessId())))
    {
        std::filesystem::create_directories(path);
        // As the services give it back.
        path = std::filesystem::canonical(path);
    }
    bool Remove() const
    {
        std::error_code error;
        std::filesystem::remove_all(path, error);
        return !std::filesystem::exists(path);
    }

    std::filesystem::path path;
};

ordered_json ReadJson(const std::filesystem::path& path)
{
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path.filename().string());
    return ordered_json::parse(file);
}

void Write(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path.string());
}

// The test programs link with Kestro.dll.
void PrepareTests(const Folders& folders)
{
    wchar_t path[32767] = L"";
    GetEnvironmentVariableW(L"PATH", path, 32767);
    SetEnvironmentVariableW(L"PATH", ((folders.check / L"bin").wstring() + L';' + path).c_str());
}

int Check(const std::filesystem::path& report, bool questionsOnly)
{
    const WorkFolder work;
    const Folders folders{OwnFolder(), work.path};
    const SystemSettingsFile settings;
    const Progress progress = [](const std::string& what) {
        std::printf("  %s\n", what.c_str());
        std::fflush(stdout);
    };

    ordered_json found{{"kestro", KESTRO_VERSION}, {"system", DescribeSystem()}};
    const bool wine = !found["system"]["wine"].is_null();
    found["questions"] =
        Interview(folders, ReadJson(folders.check / L"expected.json"), wine, progress);
    found["programs"] = found["printed"] = ordered_json::array();
    if (!questionsOnly) {
        PrepareTests(folders);
        found["printed"] = CompareWhatIsPrinted(folders);
        found["programs"] = RunTestPrograms(folders, progress);
    }
    found["remarks"] = ordered_json::array();
    if (!settings.Restore())
        found["remarks"].push_back(
            "win.ini could not be put back: a section Status may stand in it.");
    if (!work.Remove())
        found["remarks"].push_back("The work folder could not be removed: an image may still be "
                                   "mounted in it. DISM /Cleanup-Mountpoints releases it.");
    found["differences"] = Differences(found);

    const std::string text = ReadableReport(found);
    Write(std::filesystem::path(report) += L".txt", text);
    Write(std::filesystem::path(report) += L".json",
          found.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n');
    std::fputs(("\n" + text).c_str(), stdout);
    return found["differences"] == 0 && found["remarks"].empty() ? 0 : 1;
}

} // namespace
} // namespace kestro::check

int wmain(int argc, wchar_t** argv)
{
    using namespace kestro::check;
    const std::vector<std::wstring> arguments(argv + 1, argv + argc);
    try {
        if (arguments.size() == 3 && arguments[0] == L"--ask")
            return AnswerOne(std::filesystem::path(arguments[1]).string(),
                             {OwnFolder(), arguments[2]});
        if (arguments.size() == 2 && arguments[0] == L"--questions")
            return Check(arguments[1], true);
        if (arguments.size() == 1)
            return Check(arguments[0], false);
        std::fputs("usage: kestro-check [--questions] REPORT\n", stderr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kestro-check: %s\n", error.what());
    }
    return 2;
}
