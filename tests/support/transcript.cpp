// transcript.cpp - comparison of transcripts and the text form of their events.
#include "support/transcript.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <sstream>

namespace kestro::test {

namespace {

int compared = 0;

struct Row {
    const ExpectedEvent* expected;
    const std::string* actual;
};

// The two columns with as many rows as possible side by side (longest common subsequence).
std::vector<Row> Align(const ExpectedEvents& expected, const Events& actual)
{
    const size_t rows = expected.size(), columns = actual.size();
    std::vector<std::vector<int>> common(rows + 1, std::vector<int>(columns + 1, 0));
    for (size_t i = rows; i-- > 0;)
        for (size_t j = columns; j-- > 0;)
            common[i][j] = expected[i].Meets(actual[j])
                               ? common[i + 1][j + 1] + 1
                               : std::max(common[i + 1][j], common[i][j + 1]);

    std::vector<Row> aligned;
    size_t i = 0, j = 0;
    while (i < rows || j < columns) {
        if (i < rows && j < columns && expected[i].Meets(actual[j]))
            aligned.push_back({&expected[i++], &actual[j++]});
        else if (j == columns || (i < rows && common[i + 1][j] >= common[i][j + 1]))
            aligned.push_back({&expected[i++], nullptr});
        else
            aligned.push_back({nullptr, &actual[j++]});
    }
    return aligned;
}

std::string SideBySide(const ExpectedEvents& expected, const Events& actual)
{
    constexpr size_t width = 76, before = 6, shown = 40;
    const std::vector<Row> rows = Align(expected, actual);
    const auto differs = [](const Row& row) { return !row.expected || !row.actual; };
    const auto difference = std::find_if(rows.begin(), rows.end(), differs);
    const auto at = static_cast<size_t>(difference - rows.begin());
    const size_t first = at > before ? at - before : 0;
    const size_t last = std::min(rows.size(), first + shown);

    std::ostringstream out;
    out << Format("%-*s   %s\n", static_cast<int>(width), "EXPECTED", "ACTUAL");
    if (first > 0)
        out << "... " << first << " equal events before\n";
    for (size_t i = first; i < last; ++i) {
        const std::string left = rows[i].expected ? rows[i].expected->Text() : "(nothing)";
        const std::string right = rows[i].actual ? *rows[i].actual : "(nothing)";
        out << Format("%-*s %c %s\n", static_cast<int>(width), left.c_str(),
                      differs(rows[i]) ? '|' : ' ', right.c_str());
    }
    if (last < rows.size())
        out << "... " << rows.size() - last << " more\n";
    return out.str();
}

} // namespace

testing::AssertionResult SameTranscript(const ExpectedEvents& expected, const Events& actual)
{
    ++compared;
    const bool same =
        expected.size() == actual.size() &&
        std::equal(expected.begin(), expected.end(), actual.begin(),
                   [](const auto& left, const auto& right) { return left.Meets(right); });
    if (same)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "transcripts differ\n" << SideBySide(expected, actual);
}

int TranscriptsCompared()
{
    return compared;
}

std::string Quote(const char* text, size_t length)
{
    std::string quoted = "\"";
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte == '\n')
            quoted += "\\n";
        else if (byte < 0x20 || byte > 0x7E)
            quoted += Format("\\x%02X", byte);
        else
            quoted += text[i];
    }
    return quoted + '"';
}

std::string Quote(const char* text)
{
    return text ? Quote(text, std::char_traits<char>::length(text)) : "NULL";
}

std::string Quote(const wchar_t* text)
{
    if (!text)
        return "NULL";
    std::string quoted = "\"";
    for (; *text; ++text) {
        if (*text == L'\n')
            quoted += "\\n";
        else if (*text < 0x20 || *text > 0x7E)
            quoted += Format("\\u%04X", static_cast<unsigned>(*text));
        else
            quoted += static_cast<char>(*text);
    }
    return quoted + '"';
}

std::string Format(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(static_cast<size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return text;
}

} // namespace kestro::test
