// transcript.h - what the library did, in order, and its comparison with what it should have done.
#pragma once

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace kestro::test {

// One expected event: a text to be met exactly, or a rule where more than one text is right.
class ExpectedEvent {
  public:
    using Rule = std::function<bool(const std::string&)>;

    ExpectedEvent(std::string text) : text_(std::move(text)) {}
    ExpectedEvent(const char* text) : text_(text) {}
    ExpectedEvent(std::string description, Rule rule)
        : text_(std::move(description)), rule_(std::move(rule))
    {
    }

    bool Meets(const std::string& event) const { return rule_ ? rule_(event) : event == text_; }
    const std::string& Text() const { return text_; }

  private:
    std::string text_;
    Rule rule_;
};

using Events = std::vector<std::string>;
using ExpectedEvents = std::vector<ExpectedEvent>;

// Whole against whole. A mismatch shows both columns from shortly before the first difference.
testing::AssertionResult SameTranscript(const ExpectedEvents& expected, const Events& actual);

// How many transcripts SameTranscript has compared in this process.
int TranscriptsCompared();

// Texts as they stand in an event: quoted, with everything but printable ASCII escaped.
std::string Quote(const char* text);
std::string Quote(const char* text, size_t length);
std::string Quote(const wchar_t* text);

// printf into a string.
#if defined(__GNUC__)
[[gnu::format(printf, 1, 2)]]
#endif
std::string
Format(const char* format, ...);

} // namespace kestro::test
