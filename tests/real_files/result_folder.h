// result_folder.h - a test's own folder for ResultFiles, and the lines of such a file.
#pragma once

#include "support/kestro_library.h"
#include "support/transcript.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kestro::test {

using Lines = std::vector<std::string>;

// Gone with everything in it when the test ends.
class ResultFolder {
  public:
    // name may hold any character that a folder's name may.
    explicit ResultFolder(const std::wstring& name = L"results");
    ~ResultFolder();
    ResultFolder(const ResultFolder&) = delete;
    ResultFolder& operator=(const ResultFolder&) = delete;

    std::filesystem::path Path(const std::wstring& file) const { return folder_ / file; }

  private:
    std::filesystem::path root_;
    std::filesystem::path folder_;
};

// A ResultFile's path in both forms; it has to outlive the call that is given it.
class ResultPath {
  public:
    explicit ResultPath(std::filesystem::path path);
    operator ResultFile() const { return {narrow_.c_str(), path_.c_str()}; }

  private:
    std::filesystem::path path_;
    std::string narrow_;
};

std::string ReadBytes(const std::filesystem::path& file);
void WriteBytes(const std::filesystem::path& file, const std::string& bytes);

// The file's lines without the empty ones; every line has to end with CR LF.
Lines ReadLines(const std::filesystem::path& file);
// The same for a UTF-16 file with its mark, as ASCII.
Lines ReadWideLines(const std::filesystem::path& file);

} // namespace kestro::test
