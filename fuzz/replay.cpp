// replay.cpp - runs files through the fuzz targets, without a fuzzer: fuzz_replay CORPUS...
#include "scratch.h"
#include "targets.h"

#include <cstdio>

namespace {

using namespace kestro::fuzz;

constexpr struct {
    const char* name;
    void (*run)(const std::string& input);
} kTargets[] = {{"catalog", Catalog},     {"hive", Hive}, {"log", HiveLog},
                {"image", Image},         {"inf", Inf},   {"record", MountRecord},
                {"table", PartitionTable}};

// Runs a target over its folder in each corpus; returns how many files there were.
int Replay(const char* name, void (*run)(const std::string& input), const fs::path& corpus)
{
    int files = 0;
    if (fs::is_directory(corpus / name))
        for (const auto& entry : fs::directory_iterator(corpus / name)) {
            std::fprintf(stderr, "%s\n", entry.path().c_str());
            run(ReadFile(entry.path()));
            ++files;
        }
    return files;
}

} // namespace

int main(int count, char** arguments)
{
    if (count < 2) {
        std::fputs("usage: fuzz_replay CORPUS...\n", stderr);
        return 2;
    }
    bool whole = true;
    for (const auto& target : kTargets) {
        int files = 0;
        for (int i = 1; i < count; ++i)
            files += Replay(target.name, target.run, arguments[i]);
        std::printf("%-8s %d files\n", target.name, files);
        whole = whole && files != 0;
    }
    if (!whole)
        std::fputs("a target has no corpus\n", stderr);
    return whole ? 0 : 1;
}
