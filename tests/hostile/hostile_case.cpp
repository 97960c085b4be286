// hostile_case.cpp - the shared part of the tests with hostile input.
#include "hostile/hostile_case.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

namespace kestro::test {

namespace fs = std::filesystem;

const std::vector<HostileText>& HostileTexts()
{
    constexpr size_t longest = 32767;
    static const std::vector<HostileText> texts{
        {"null", {}},
        {"empty", L""},
        {"one long name", std::wstring(longest, L'a')},
        {"a long path",
         [] {
             std::wstring path = L"C:";
             while (path.size() + 9 <= longest)
                 path += L"\\folder12";
             return path + std::wstring(longest - path.size(), L'x');
         }()},
        {"high surrogate alone", L"C:\\no\xD800where"},
        {"low surrogate first", L"C:\\\xDC00\xD800"},
        {"device prefix alone", L"\\\\?\\"},
    };
    return texts;
}

bool Thorough()
{
    return std::getenv("KESTRO_SOAK") != nullptr;
}

void HostileCase::SetUp()
{
    static int count = 0;
    folder_ = fs::temp_directory_path() / (L"hostile-" + std::to_wstring(GetCurrentProcessId()) +
                                           L'-' + std::to_wstring(++count));
    fs::create_directories(folder_ / L"image/Windows/INF");
    image_ = folder_ / L"image";
    log_file_ = folder_ / L"dism.log";
    result_ = folder_ / L"result.ini";
    narrow_result_ = (folder_ / L"result.ini").string();
    fs::current_path(folder_);
}

void HostileCase::TearDown()
{
    std::error_code ignored;
    fs::current_path(fs::temp_directory_path());
    fs::remove_all(folder_, ignored);
}

std::optional<std::wstring> HostileCase::InFolder(const HostileText& text) const
{
    constexpr wchar_t drive[] = L"C:\\";
    if (!text.wide || !text.wide->starts_with(drive))
        return text.wide;
    return Path(text.wide->substr(std::size(drive) - 1)).wstring();
}

std::set<std::wstring> HostileCase::Names() const
{
    std::set<std::wstring> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder_))
        names.insert(entry.path().filename().wstring());
    return names;
}

HRESULT HostileCase::TakeFailure() const
{
    HRESULT failure = 0;
    {
        std::ifstream file(fs::path(result_), std::ios::binary);
        for (std::string line; failure == 0 && std::getline(file, line);) {
            const size_t value = line.find("=-");
            if (line.find(" - ") != std::string::npos && value != std::string::npos)
                failure = static_cast<HRESULT>(std::strtol(&line[value + 1], nullptr, 10));
        }
    }
    fs::remove(result_);
    return failure;
}

} // namespace kestro::test
