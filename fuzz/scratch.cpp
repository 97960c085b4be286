// scratch.cpp - files for one input, and the promises that an input must not break.
#include "scratch.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace kestro::fuzz {

Scratch::Scratch()
{
    const fs::path memory = "/dev/shm";
    const fs::path place = fs::is_directory(memory) ? memory : fs::temp_directory_path();
    std::string pattern = place / "kestro-fuzz-XXXXXX";
    Require(mkdtemp(pattern.data()) != nullptr,
            "a scratch folder can be made in " + place.string());
    folder_ = pattern;
}

Scratch::~Scratch()
{
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

void WriteFile(const fs::path& file, const std::string& content)
{
    fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream << content;
    stream.close();
    Require(!stream.fail(), file.string() + " can be written");
}

std::string ReadFile(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::set<std::string> Below(const fs::path& folder)
{
    std::set<std::string> paths;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        paths.insert(entry.path().lexically_relative(folder));
    return paths;
}

void Require(bool promise, const std::string& what)
{
    if (promise)
        return;
    std::fprintf(stderr, "broken promise: %s\n", what.c_str());
    std::abort();
}

} // namespace kestro::fuzz
