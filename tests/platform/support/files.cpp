// files.cpp - files and commands of the native tests.
#include "files.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>

namespace kestro::test {

namespace {

std::pair<int, std::string> ShellAnyhow(const std::string& command)
{
    std::string output;
    FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
    char block[4096];
    for (std::size_t count; (count = fread(block, 1, sizeof block, pipe)) != 0;)
        output.append(block, count);
    return {pclose(pipe), output};
}

} // namespace

std::string Shell(const std::string& command)
{
    const auto [status, output] = ShellAnyhow(command);
    EXPECT_EQ(status, 0) << command << "\n" << output;
    return output;
}

bool Succeeds(const std::string& command)
{
    return ShellAnyhow(command).first == 0;
}

std::string ReadFile(const fs::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream) << path;
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

void WriteFile(const fs::path& path, const std::string& content)
{
    fs::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary);
    stream << content;
    EXPECT_TRUE(stream) << path;
}

std::string Noise(unsigned seed, std::size_t size)
{
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

} // namespace kestro::test
