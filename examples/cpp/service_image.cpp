// service_image.cpp - a host in C++20 on kestro.hpp: mounts an image, adds any number of driver packages,
// lists what the image has then, and unmounts. The changes are saved only when every package went in.
//
//   service_image IMAGE DIRECTORY RESULTS INF...
//
// Full paths. RESULTS is a directory for the ResultFiles. Kestro.dll lies beside the program. Exit code 0 is
// success.
#include "kestro.hpp"

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

// What kestro.hpp returns is UTF-8.
void Print(const std::string& text)
{
    std::printf("%s\n", text.c_str());
}

bool Report(const char* what, const kestro::Outcome& outcome)
{
    Print(std::string(what) + (outcome.succeeded ? ": OK" : ": failed"));
    if (outcome.failure)
        std::printf("  %s failed in step %s: 0x%08X\n", outcome.failure->function.c_str(),
                    outcome.step.c_str(), static_cast<unsigned>(outcome.failure->hresult));
    return outcome.succeeded;
}

// The path of Kestro.dll is a full one, and what it needs comes from the system's folder: a DismApi.dll
// that somebody put beside this program or into the current folder is not loaded.
std::wstring LibraryPath()
{
    std::wstring program(32768, L'\0');
    program.resize(GetModuleFileNameW(nullptr, program.data(), 32767));
    return std::filesystem::path(program).replace_filename(L"Kestro.dll").wstring();
}

// Keys of an earlier run would stay in the file and read like this one's.
std::wstring NewFile(const std::filesystem::path& results, const std::wstring& name)
{
    std::filesystem::remove(results / name);
    return (results / name).wstring();
}

bool AddDrivers(const kestro::Operations& kestro, const std::wstring& directory,
                const std::vector<std::wstring>& infs, const std::wstring& log,
                const std::filesystem::path& results)
{
    const auto resultOf = [&](std::size_t call) {
        return NewFile(results, L"drivers-" + std::to_wstring(call) + L".ini");
    };
    bool all = true;
    for (const auto& outcome : kestro.AddDrivers(directory, infs, log, resultOf)) {
        all = Report("add drivers", outcome) && all;
        // A package that was refused does not fail its call.
        for (const kestro::PackageOutcome& package : outcome.packages) {
            std::printf("  %ls: %s\n", package.inf.c_str(), package.added ? "added" : "refused");
            all = package.added && all;
        }
    }
    return all;
}

int Service(const std::vector<std::wstring>& arguments)
{
    const std::wstring &image = arguments[0], &directory = arguments[1];
    const std::filesystem::path results = arguments[2];
    const std::vector<std::wstring> infs(arguments.begin() + 3, arguments.end());
    const std::wstring log = (results / L"dism.log").wstring();
    const auto files = [&](const wchar_t* result) {
        return kestro::Files{log, NewFile(results, result)};
    };

    const kestro::Library library(LibraryPath());
    const kestro::Operations kestro(library);
    if (!Report("mount", kestro.Mount(image, directory, files(L"mount.ini"))))
        return 1;
    const bool added = AddDrivers(kestro, directory, infs, log, results);
    const kestro::DriverListing listing = kestro.GetDrivers(directory, files(L"list.ini"));
    Report("list", listing);
    for (const kestro::ListedPackage& package : listing.packages)
        Print("  " + package.publishedName);
    const bool unmounted =
        Report("unmount", kestro.Unmount(directory, added, files(L"unmount.ini")));
    return added && unmounted ? 0 : 1;
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    if (count < 5) {
        std::fprintf(stderr, "usage: service_image IMAGE DIRECTORY RESULTS INF...\n");
        return 2;
    }
    try {
        return Service({arguments + 1, arguments + count});
    } catch (const kestro::LoadError& error) {
        std::fprintf(stderr, "%s (last error %lu)\n", error.what(), error.LastError());
        return 1;
    }
}
