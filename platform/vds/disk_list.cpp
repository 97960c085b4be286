// disk_list.cpp - the machine's disks, as one text file describes them.
#include "disk_list.h"

#include <windows.h>

#include <cwchar>

namespace kestro::vds {
namespace {

constexpr wchar_t kServiceSection[] = L"Service";

std::wstring DataFile(const wchar_t* name)
{
    CreateDirectoryW(L"C:\\ProgramData", nullptr);
    CreateDirectoryW(L"C:\\ProgramData\\Kestro", nullptr);
    return std::wstring(L"C:\\ProgramData\\Kestro\\") + name;
}

std::wstring Value(const std::wstring& section, const wchar_t* key, const wchar_t* otherwise = L"")
{
    wchar_t text[4096] = {};
    GetPrivateProfileStringW(section.c_str(), key, otherwise, text, 4095,
                             DataFile(L"disks.ini").c_str());
    return text;
}

// Nothing for a word that is neither.
std::optional<bool> YesOrNo(const std::wstring& section, const wchar_t* key,
                            const wchar_t* otherwise)
{
    const std::wstring word = Value(section, key, otherwise);
    if (_wcsicmp(word.c_str(), L"yes") == 0)
        return true;
    if (_wcsicmp(word.c_str(), L"no") == 0)
        return false;
    return {};
}

std::uint32_t Number(const std::wstring& section, const wchar_t* key, int otherwise)
{
    return GetPrivateProfileIntW(section.c_str(), key, otherwise, DataFile(L"disks.ini").c_str());
}

std::vector<std::wstring> Sections()
{
    std::vector<wchar_t> names(65536);
    GetPrivateProfileSectionNamesW(names.data(), static_cast<DWORD>(names.size()),
                                   DataFile(L"disks.ini").c_str());
    std::vector<std::wstring> sections;
    for (const wchar_t* name = names.data(); *name != 0; name += std::wcslen(name) + 1)
        if (_wcsicmp(name, kServiceSection) != 0)
            sections.push_back(name);
    return sections;
}

} // namespace

std::optional<DiskEntry> ReadDisk(const std::wstring& section)
{
    DiskEntry disk;
    disk.section = section;
    disk.name = Value(section, L"Name");
    disk.file = Value(section, L"File");
    disk.provider = Value(section, L"Provider", L"Kestro disks");
    disk.pack = Value(section, L"Pack");
    disk.sectorSize = Number(section, L"SectorSize", 512);
    disk.badSector = Number(section, L"BadSector", 0);
    disk.kilobytesPerSecond = Number(section, L"KilobytesPerSecond", 0);
    const auto online = YesOrNo(section, L"Online", L"yes");
    const auto readOnly = YesOrNo(section, L"ReadOnly", L"no");
    const auto system = YesOrNo(section, L"System", L"no");
    const auto boot = YesOrNo(section, L"Boot", L"no");
    if (disk.file.empty() || !online || !readOnly || !system || !boot ||
        (disk.sectorSize != 512 && disk.sectorSize != 4096)) {
        Log(L"disks.ini: [" + section +
            L"] is left out: it needs File, yes or no for Online, "
            L"ReadOnly, System and Boot, and 512 or 4096 for SectorSize");
        return {};
    }
    disk.state = {*online, *readOnly, *system, *boot};
    return disk;
}

std::vector<DiskEntry> ReadDisks()
{
    std::vector<DiskEntry> disks;
    for (const std::wstring& section : Sections())
        if (auto disk = ReadDisk(section))
            disks.push_back(std::move(*disk));
    return disks;
}

std::uint32_t SecondsToReady()
{
    return Number(kServiceSection, L"SecondsToReady", 0);
}

bool WriteOnline(const std::wstring& section, bool online)
{
    return WritePrivateProfileStringW(section.c_str(), L"Online", online ? L"yes" : L"no",
                                      DataFile(L"disks.ini").c_str());
}

void Log(const std::wstring& message)
{
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t stamp[64];
    _snwprintf(stamp, 63, L"%04u-%02u-%02u %02u:%02u:%02u.%03u  ", now.wYear, now.wMonth, now.wDay,
               now.wHour, now.wMinute, now.wSecond, now.wMilliseconds);
    const std::wstring line = stamp + message + L"\r\n";
    const int size = WideCharToMultiByte(CP_UTF8, 0, line.data(), static_cast<int>(line.size()),
                                         nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, line.data(), static_cast<int>(line.size()), bytes.data(), size,
                        nullptr, nullptr);
    const HANDLE file = CreateFileW(DataFile(L"vds.log").c_str(), FILE_APPEND_DATA,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
        return;
    DWORD moved = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &moved, nullptr);
    CloseHandle(file);
}

} // namespace kestro::vds
