// hostile_case.h - hostile texts, and the folder, image and ResultFile that these tests share.
#pragma once

#include "kestro.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <windows.h>

namespace kestro::test {

struct HostileText {
    const char* name;
    std::optional<std::wstring> wide; // nothing: a null pointer

    const wchar_t* Wide() const { return wide ? wide->c_str() : nullptr; }
};

// Null, empty, as long as a path can be and longer than a name can be, with half a surrogate pair.
const std::vector<HostileText>& HostileTexts();

// By ./dev soak, which has the time.
bool Thorough();

// Every test works in a folder of its own, which is the current directory too: a writer that makes
// something else of a hostile path leaves nothing behind.
class HostileCase : public testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    std::filesystem::path Path(const std::wstring& name) const { return folder_ / name; }
    // The text, with a path on drive C: moved into the folder: for paths at which a file is written.
    std::optional<std::wstring> InFolder(const HostileText& text) const;
    // The root of an offline Windows that can be serviced.
    const wchar_t* Image() const { return image_.c_str(); }
    const wchar_t* LogFile() const { return log_file_.c_str(); }
    const wchar_t* ResultW() const { return result_.c_str(); }
    const char* Result() const { return narrow_result_.c_str(); }

    // The names of what lies in the folder.
    std::set<std::wstring> Names() const;
    // The first HRESULT in the ResultFile's log, which is the failed step's; 0 if there is none. The file is
    // gone after this.
    HRESULT TakeFailure() const;

  private:
    std::filesystem::path folder_;
    std::wstring image_, log_file_, result_;
    std::string narrow_result_;
};

} // namespace kestro::test
