// report_test.cpp - what kestro.hpp makes of a ResultFile's bytes.
#include "kestro/report.hpp"

#include <gtest/gtest.h>

#include <random>

namespace kestro {
namespace {

constexpr char narrowFailure[] = "[DISM_INITIALIZE]\r\n"
                                 "Result=OK\r\n"
                                 "[Status]\r\n"
                                 "LastWrite=20210305140709\r\n"
                                 "[Log]\r\n"
                                 "Righe=4\r\n"
                                 "2 - 05-03-2021 14:07:08=Mounting image...\r\n"
                                 "3 - 05-03-2021 14:07:09=DismMountImage Failed. Following error "
                                 "code.\r\n"
                                 "4 - 05-03-2021 14:07:09=-1052638957\r\n"
                                 "[DISM_MOUNT]\r\n"
                                 "ErrorCode=5\r\n"
                                 "Result=ERR\r\n";

std::string Replaced(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// A short key of the wide form arrives as its value.
std::string WideFailure()
{
    return Replaced(Replaced(narrowFailure, "Result=OK", "OK=OK"), "Result=ERR", "ERR=ERR");
}

void ExpectTheFailure(const Report& report)
{
    ASSERT_EQ(report.steps.size(), 2u);
    EXPECT_EQ(report.steps[0].name, "DISM_INITIALIZE");
    EXPECT_EQ(report.steps[0].succeeded, true);
    EXPECT_FALSE(report.steps[0].error);
    EXPECT_EQ(report.steps[1].name, "DISM_MOUNT");
    EXPECT_EQ(report.steps[1].succeeded, false);
    EXPECT_EQ(report.steps[1].error, 5);
    ASSERT_EQ(report.log.size(), 3u);
    EXPECT_EQ(report.log[0].number, 2);
    EXPECT_EQ(report.log[0].time, "05-03-2021 14:07:08");
    EXPECT_EQ(report.log[0].text, "Mounting image...");
    ASSERT_EQ(report.failures.size(), 1u);
    EXPECT_EQ(report.failures[0].function, "DismMountImage");
    EXPECT_EQ(static_cast<std::uint32_t>(report.failures[0].hresult), 0xC1420113u);
    EXPECT_EQ(report.lastWrite, "20210305140709");
}

TEST(ResultFile, BothFormsReadAlike)
{
    ExpectTheFailure(ParseResultFile(narrowFailure));
    ExpectTheFailure(ParseResultFile(WideFailure()));
}

TEST(ResultFile, AnyEncodingAndLineEnd)
{
    ExpectTheFailure(ParseResultFile(Replaced(narrowFailure, "\r\n", "\n")));
    ExpectTheFailure(ParseResultFile("\xEF\xBB\xBF" + std::string(narrowFailure)));
    std::string wide = "\xFF\xFE";
    for (const char c : std::string_view(narrowFailure))
        wide += {c, '\0'};
    ExpectTheFailure(ParseResultFile(wide));
    std::string noEnd = narrowFailure;
    noEnd.resize(noEnd.size() - 2);
    ExpectTheFailure(ParseResultFile(noEnd));
}

TEST(ResultFile, NamesCompareWithoutCase)
{
    const Report report = ParseResultFile("[dism_mount]\nRESULT=OK\n[DISM_MOUNT]\nerrorcode=7\n"
                                          "[STATUS]\nlastwrite=20210305140709\n");
    ASSERT_EQ(report.steps.size(), 1u);
    EXPECT_EQ(report.steps[0].succeeded, true);
    EXPECT_EQ(report.steps[0].error, 7);
    EXPECT_EQ(report.lastWrite, "20210305140709");
}

TEST(ResultFile, LinesOfAnEarlierCallAreLeftOut)
{
    const Report report = ParseResultFile("[Log]\nRighe=2\n"
                                          "2 - 05-03-2021 14:00:00=now\n"
                                          "3 - 05-03-2021 13:00:00=earlier\n");
    ASSERT_EQ(report.log.size(), 1u);
    EXPECT_EQ(report.log[0].text, "now");
}

TEST(ResultFile, LinesAreInTheOrderOfTheirNumbers)
{
    const Report report = ParseResultFile("[Log]\nRighe=10\n"
                                          "10 - 05-03-2021 14:00:00=last\n"
                                          "9 - 05-03-2021 14:00:00=before it\n");
    ASSERT_EQ(report.log.size(), 2u);
    EXPECT_EQ(report.log[1].text, "last");
}

TEST(ResultFile, FlagsOfBothForms)
{
    for (const char* text : {"[DISM_UNMOUNT]\nFlags=1\n", "[DISM_UNMOUNT]\n1=1\n"}) {
        const Report report = ParseResultFile(text);
        ASSERT_EQ(report.steps.size(), 1u) << text;
        EXPECT_EQ(report.steps[0].other,
                  (std::vector<std::pair<std::string, std::string>>{{"Flags", "1"}}))
            << text;
    }
}

TEST(ResultFile, WhatIsNoResultFileGivesAnEmptyReport)
{
    for (const std::string& bytes :
         {std::string(), std::string("no section"), std::string("[Log\nRighe=x\n"),
          std::string(1000, '\0'), std::string("\xFF\xFE"), std::string("\xFF\xFE\x41"),
          std::string("[Log]\nRighe=99999999999\n = \n=\n")}) {
        const Report report = ParseResultFile(bytes);
        EXPECT_TRUE(report.log.empty());
        EXPECT_TRUE(report.failures.empty());
    }
}

TEST(ResultFile, DamagedFilesAreRead)
{
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        std::string bytes = round % 2 ? WideFailure() : std::string(narrowFailure);
        for (int i = 0; i < 5; ++i)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        EXPECT_NO_THROW(ParseResultFile(bytes.substr(0, random() % (bytes.size() + 1))));
    }
}

} // namespace
} // namespace kestro
