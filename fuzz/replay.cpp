// replay.cpp - runs files through the fuzz targets, without a fuzzer: fuzz_replay CORPUS [TARGET].
#include "scratch.h"
#include "targets.h"

#include <cstdio>
#include <cstring>

namespace {

using namespace kestro::fuzz;

constexpr struct {
    const char* name;
    void (*run)(const std::string& input);
} kTargets[] = {{"catalog", Catalog},     {"hive", Hive}, {"log", HiveLog},
                {"image", Image},         {"inf", Inf},   {"record", MountRecord},
                {"table", PartitionTable}};

} // namespace

int main(int count, char** arguments)
{
    if (count < 2) {
        std::fputs("usage: fuzz_replay CORPUS [TARGET]\n", stderr);
        return 2;
    }
    bool whole = true;
    for (const auto& target : kTargets) {
        if (count > 2 && std::strcmp(arguments[2], target.name) != 0)
            continue;
        int files = 0;
        for (const auto& entry : fs::directory_iterator(fs::path(arguments[1]) / target.name)) {
            std::fprintf(stderr, "%s\n", entry.path().c_str());
            target.run(ReadFile(entry.path()));
            ++files;
        }
        std::printf("%-8s %d files\n", target.name, files);
        whole = whole && files != 0;
    }
    if (!whole)
        std::fputs("a target has no corpus\n", stderr);
    return whole ? 0 : 1;
}
