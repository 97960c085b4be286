// inf_fit.cpp - for which architectures an INF has something.
#include "inf_fit.h"

#include "image_choice.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include <setupapi.h>

namespace kestro::host {
namespace {

std::wstring Field(INFCONTEXT& line, DWORD number)
{
    wchar_t text[512] = L"";
    SetupGetStringFieldW(&line, number, text, 512, nullptr);
    return text;
}

// What a line of [Manufacturer] says behind its models section: "NTamd64.10.0...16299" is for x64.
std::string ArchitectureOf(const std::wstring& decoration)
{
    const std::wstring target = decoration.substr(0, decoration.find(L'.'));
    if (_wcsicmp(target.c_str(), L"NT") == 0)
        return "any";
    if (_wcsicmp(target.c_str(), L"NTamd64") == 0)
        return "x64";
    std::string name =
        detail::Utf8(target.substr(_wcsnicmp(target.c_str(), L"NT", 2) == 0 ? 2 : 0));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return name;
}

std::set<std::string> Architectures(const std::wstring& inf)
{
    std::set<std::string> found;
    const HINF file = SetupOpenInfFileW(inf.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return found;
    INFCONTEXT line;
    for (BOOL more = SetupFindFirstLineW(file, L"Manufacturer", nullptr, &line); more;
         more = SetupFindNextLine(&line, &line)) {
        const DWORD fields = SetupGetFieldCount(&line);
        if (fields < 2)
            found.insert("any");
        for (DWORD number = 2; number <= fields; ++number)
            found.insert(ArchitectureOf(Field(line, number)));
    }
    SetupCloseInfFile(file);
    return found;
}

} // namespace

bool HasCatalog(const std::wstring& inf)
{
    const HINF file = SetupOpenInfFileW(inf.c_str(), nullptr, INF_STYLE_WIN4, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return false;
    bool found = false;
    for (const wchar_t* key :
         {L"CatalogFile", L"CatalogFile.NT", L"CatalogFile.NTamd64", L"CatalogFile.NTx86",
          L"CatalogFile.NTarm64", L"CatalogFile.NTarm"}) {
        INFCONTEXT line;
        std::error_code error;
        if (SetupFindFirstLineW(file, L"Version", key, &line))
            found = found || std::filesystem::is_regular_file(
                                 std::filesystem::path(inf).parent_path() / Field(line, 1), error);
    }
    SetupCloseInfFile(file);
    return found;
}

std::string WhyUnfit(const std::wstring& inf, std::uint32_t imageArchitecture)
{
    const std::set<std::string> architectures = Architectures(inf);
    const std::string wanted = ArchitectureText(imageArchitecture);
    if (wanted == "-")
        return "for another architecture or Windows version";
    if (architectures.count("any") != 0 || architectures.count(wanted) != 0)
        return "for another Windows version";
    std::string list;
    for (const std::string& architecture : architectures)
        list += (list.empty() ? "" : ", ") + architecture;
    return "for another architecture" + (list.empty() ? "" : " (" + list + ")");
}

} // namespace kestro::host
