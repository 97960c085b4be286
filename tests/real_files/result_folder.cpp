// result_folder.cpp - temporary folders and reading back what the profile writers left.
#include "real_files/result_folder.h"

#include "support/expectation.h"

#include <fstream>
#include <iterator>

namespace kestro::test {

namespace {

Lines Split(const std::string& text)
{
    Lines lines;
    for (size_t start = 0; start < text.size();) {
        const size_t end = text.find("\r\n", start);
        if (end == std::string::npos) {
            ADD_FAILURE() << "the last line has no end: " << text.substr(start);
            break;
        }
        if (end > start)
            lines.push_back(text.substr(start, end - start));
        start = end + 2;
    }
    return lines;
}

} // namespace

ResultFolder::ResultFolder(const std::wstring& name)
{
    static int count = 0;
    root_ = std::filesystem::temp_directory_path() /
            ("kestro-" + std::to_string(GetCurrentProcessId()) + '-' + std::to_string(++count));
    folder_ = root_ / name;
    std::filesystem::create_directories(folder_);
}

ResultFolder::~ResultFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
}

ResultPath::ResultPath(std::filesystem::path path)
    : path_(std::move(path)), narrow_(Narrow(path_.wstring()))
{
}

std::string ReadBytes(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    EXPECT_TRUE(in) << "no file " << file;
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteBytes(const std::filesystem::path& file, const std::string& bytes)
{
    std::ofstream(file, std::ios::binary) << bytes;
}

Lines ReadLines(const std::filesystem::path& file)
{
    return Split(ReadBytes(file));
}

Lines ReadWideLines(const std::filesystem::path& file)
{
    const std::string bytes = ReadBytes(file);
    EXPECT_EQ(bytes.substr(0, 2), "\xFF\xFE");
    std::string text;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
        EXPECT_EQ(bytes[i + 1], '\0');
        text += bytes[i];
    }
    return Split(text);
}

} // namespace kestro::test
