// recorded_writers.cpp - puts the recording writers into the library's import table.
#include "hostile/recorded_writers.h"

namespace kestro::test {

namespace {

std::set<const void*> files;

template <typename Character>
BOOL WINAPI Record(const Character*, const Character*, const Character*, const Character* file)
{
    files.insert(file);
    SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return FALSE;
}

} // namespace

RecordedWriters::RecordedWriters()
{
    files.clear();
    for (const Import& import : ImportsOf(GetModuleHandleW(L"Kestro.dll"))) {
        void* writer = nullptr;
        if (import.name == "WritePrivateProfileStringA")
            writer = reinterpret_cast<void*>(Record<char>);
        else if (import.name == "WritePrivateProfileStringW")
            writer = reinterpret_cast<void*>(Record<wchar_t>);
        else
            continue;
        originals_.emplace_back(import, *import.slot);
        Redirect(import, writer);
    }
}

RecordedWriters::~RecordedWriters()
{
    for (const auto& [import, original] : originals_)
        Redirect(import, original);
}

const std::set<const void*>& RecordedWriters::Files() const
{
    return files;
}

} // namespace kestro::test
