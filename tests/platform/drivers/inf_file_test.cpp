// inf_file_test.cpp - the text of INF files: encodings, lines, fields and strings.
#include "inf_case.h"

#include "files.h"
#include "refusal.h"
#include "text_encoding.h"

#include <cstdlib>

namespace kestro::test {
namespace {

using servicing::TextOfFile;

std::vector<std::string> Values(const std::string& line)
{
    std::vector<std::string> values;
    for (const auto& lines : Inf("[A]\n" + line).Section("a"))
        for (const auto& value : lines.values)
            values.push_back(value.text);
    return values;
}

using Texts = std::vector<std::string>;

TEST(InfText, FieldsOfALine)
{
    EXPECT_EQ(Values("a,b"), (Texts{"a", "b"}));
    EXPECT_EQ(Values(" a b\t, c \r"), (Texts{"a b", "c"}));
    EXPECT_EQ(Values("a,,b,"), (Texts{"a", "", "b", ""}));
    EXPECT_EQ(Values("key = a, b=c ; a comment, with a comma"), (Texts{"a", "b=c"}));
    EXPECT_EQ(Values("key ="), (Texts{""}));
    EXPECT_EQ(Values("; nothing\n\n   ; nothing"), Texts());
}

TEST(InfText, KeysOfLines)
{
    const auto key = [](const std::string& line) {
        return Inf("[A]\n" + line).Section("a").at(0).Key();
    };
    EXPECT_EQ(key("\"a key\" = b"), "a key");
    EXPECT_EQ(key("a, b"), "");
    EXPECT_EQ(key("alone"), "alone");
}

TEST(InfText, QuotationMarks)
{
    EXPECT_EQ(Values("\" a, b; c \",d"), (Texts{" a, b; c ", "d"}));
    EXPECT_EQ(Values("\"the \"\"real\"\" one\""), (Texts{"the \"real\" one"}));
    EXPECT_EQ(Values("a \"b = c\" d"), (Texts{"a b = c d"}));
    EXPECT_EQ(Values("\"ends with its line\r\nb"), (Texts{"ends with its line", "b"}));
}

TEST(InfText, LinesThatGoOn)
{
    EXPECT_EQ(Values("a,\\\r\n  b, \\ ; more follows\n c"), (Texts{"a", "b", "c"}));
    EXPECT_EQ(Values("\"folder\\\" \\\n ,x"), (Texts{"folder\\", "x"}));
    EXPECT_EQ(Values("%11%\\drivers\\a.sys, sub\\folder"),
              (Texts{"%11%\\drivers\\a.sys", "sub\\folder"}));
    EXPECT_EQ(Values("last\\"), (Texts{"last\\"}));
}

TEST(InfText, SectionsOfOneNameAreOne)
{
    const auto inf = Inf("[First]\na=1\n[Second]\nb=2\n[FIRST]\nc=3\n");
    EXPECT_EQ(inf.Section("first").size(), 2u);
    EXPECT_EQ(inf.Value("first", "C"), "3");
    EXPECT_TRUE(inf.Has("SECOND"));
    EXPECT_FALSE(inf.Has("Third"));
}

TEST(InfText, StringsAndTheirTokens)
{
    const auto inf =
        Inf("[A]\nk=%Maker% device,%maker%,%%SystemRoot%%\\a,%12%\\b.sys,%unknown%,50%\n"
            "[Strings]\nMAKER=\"Kestro \"\"Samples\"\"\"\n");
    const auto line = inf.Section("A").at(0);
    EXPECT_EQ(line.Value(0), "Kestro \"Samples\" device");
    EXPECT_EQ(line.Field(0).written, "%Maker% device");
    EXPECT_EQ(line.Value(1), "Kestro \"Samples\"");
    EXPECT_EQ(line.Value(2), "%SystemRoot%\\a");
    EXPECT_EQ(line.Value(3), "%12%\\b.sys");
    EXPECT_EQ(line.Value(4), "%unknown%");
    EXPECT_EQ(line.Value(5), "50%");
    EXPECT_EQ(line.Value(6), "");
}

TEST(InfText, StringsOfTheImagesLanguage)
{
    const std::string text = "[A]\nk=%one%,%two%,%three%\n"
                             "[Strings]\none=any\ntwo=any\nthree=any\n"
                             "[Strings.0009]\none=English\ntwo=English\n"
                             "[Strings.0409]\none=American\n";
    const auto words = [&](unsigned language) {
        const auto line = Inf(text, language).Section("A").at(0);
        return line.Value(0) + " " + line.Value(1) + " " + line.Value(2);
    };
    EXPECT_EQ(words(0x409), "American English any");
    EXPECT_EQ(words(0x809), "English English any");
    EXPECT_EQ(words(0x407), "any any any");
}

TEST(InfText, Encodings)
{
    const std::string text = "[S]\nMaker=K\xC3\xA4stro \xE2\x82\xAC\n";
    const std::string wide = servicing::Utf16Of(text);
    std::string swapped = wide;
    for (std::size_t i = 0; i < swapped.size(); i += 2)
        std::swap(swapped[i], swapped[i + 1]);
    EXPECT_EQ(TextOfFile("\xFF\xFE" + wide), text);
    EXPECT_EQ(TextOfFile("\xFE\xFF" + swapped), text);
    EXPECT_EQ(TextOfFile(wide), text);
    EXPECT_EQ(TextOfFile("\xEF\xBB\xBF" + text), text);
    EXPECT_EQ(TextOfFile("[S]\nMaker=K\xE4stro \x80\n"), text);
}

TEST(InfText, WhatIsNoCharacter)
{
    const std::string none = "\xEF\xBF\xBD";
    EXPECT_EQ(TextOfFile("\xEF\xBB\xBF\xC3(\xED\xA0\x80\xF8\xC0\x80"),
              none + "(" + none + none + none + none);
    EXPECT_EQ(TextOfFile(std::string("\xFF\xFE\x00\xD8\x41\x00\x3D\xD8\x00\xDE\x00\xDC", 12)),
              none + "A\xF0\x9F\x98\x80" + none);
    EXPECT_EQ(TextOfFile(std::string("a\0b", 3)), "a b");
    EXPECT_EQ(servicing::Utf16Of("\xF0\x9F\x98\x80"), std::string("\x3D\xD8\x00\xDE", 4));
}

TEST(InfText, WhatIsNoInf)
{
    const auto parse = [](const std::string& text) { InfFile::Parse(text, "sample.inf"); };
    EXPECT_CODE(parse(""), 0x800F0000);
    EXPECT_CODE(parse("text\n[Version]\nSignature=$Windows NT$\n"), 0x800F0000);
    EXPECT_CODE(parse("[Version\nSignature=$Windows NT$\n"), 0x800F0001);
    EXPECT_CODE(parse("[" + std::string(256, 'x') + "]\n"), 0x800F0002);
    EXPECT_CODE(parse("[Version]\nClass=Net\n"), 0x800F0100);
    EXPECT_CODE(parse("[Version]\nSignature=$WINDOWS 3$\n"), 0x800F0100);
    EXPECT_NO_THROW(parse("; first\n\n[version]\nSIGNATURE = \"$Chicago$\""));
}

TEST(InfText, StringsThatMakeASectionTooLarge)
{
    std::string text = "[Strings]\na=" + std::string(4000, 'a') + "\n[Large]\n";
    for (int i = 0; i < 40'000; ++i)
        text += "%a%\n";
    EXPECT_CODE(Inf(text).Section("large"), 0x800F0003);
}

} // namespace
} // namespace kestro::test
