// ansi_name.h - a name from the platform or the host as ANSI text, for a log line or a key.
#pragma once

#include <memory>

namespace kestro::library {

// A copy of a wide name and its text in the ANSI code page. Characters outside that code page
// appear as the platform renders them. Constructing one throws the COM support's exception
// (_com_error) when memory runs out or the platform cannot convert the name.
class AnsiName {
  public:
    explicit AnsiName(const wchar_t* name);

    // Null for a null name.
    const char* Text() const { return text_.get(); }
    const char* TextOrEmpty() const { return text_ ? text_.get() : ""; }

  private:
    struct FreeString {
        void operator()(wchar_t* copy) const;
    };

    std::unique_ptr<wchar_t, FreeString> copy_;
    std::unique_ptr<char[]> text_;
};

} // namespace kestro::library
