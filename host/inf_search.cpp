// inf_search.cpp - the INF files that a command's arguments name.
#include "inf_search.h"

#include "session.h"
#include "usage_error.h"

#include <algorithm>
#include <filesystem>

namespace kestro::host {
namespace fs = std::filesystem;

namespace {

bool IsInf(const fs::path& path)
{
    return _wcsicmp(path.extension().c_str(), L".inf") == 0;
}

std::vector<std::wstring> InfsBelow(const fs::path& directory)
{
    std::vector<std::wstring> found;
    try {
        for (const auto& entry : fs::recursive_directory_iterator(directory))
            if (entry.is_regular_file() && IsInf(entry.path()))
                found.push_back(entry.path().wstring());
    } catch (const fs::filesystem_error& error) {
        // What cannot be looked into might hold a driver that the image then lacks.
        throw UsageError("cannot search " + Shown(error.path1().wstring()) +
                         " for INF files: " + error.code().message());
    }
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace

std::vector<std::wstring> FindInfs(const std::vector<std::wstring>& arguments)
{
    std::vector<std::wstring> infs;
    const auto add = [&](const std::wstring& inf) {
        if (std::find(infs.begin(), infs.end(), inf) == infs.end())
            infs.push_back(inf);
    };
    for (const std::wstring& argument : arguments) {
        const std::wstring path = FullPath(argument);
        std::error_code error;
        if (fs::is_directory(path, error)) {
            const auto below = InfsBelow(path);
            if (below.empty())
                throw UsageError("there is no INF file below " + Shown(path));
            std::for_each(below.begin(), below.end(), add);
        } else if (fs::exists(path, error)) {
            add(path);
        } else {
            throw UsageError("there is no INF file " + Shown(path));
        }
    }
    return infs;
}

} // namespace kestro::host
