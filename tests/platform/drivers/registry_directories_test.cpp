// registry_directories_test.cpp - directories in the registry settings of a driver package.
#include "inf_case.h"

#include "registry_directories.h"
#include "text_encoding.h"

namespace kestro::test {
namespace {

// What a line of an event log's section holds in the end.
std::string Text(const std::string& flags, const std::string& text)
{
    auto package = Read("[Manufacturer]\nKestro=Models,NTamd64\n[Models.NTamd64]\nA=Install,<a>\n"
                        "[Install.Services]\nAddService=kssample,2,Service,Log\n"
                        "[Log]\nAddReg=Settings\n[Settings]\nHKR,,Name," +
                        flags + "," + text + "\n");
    package = WithDirectories(std::move(package), "sample.inf_amd64_0");
    const std::string data =
        package.configurations.at(0).services.at(0).eventLogs.at(0).settings.at(0).data;
    return servicing::TextOfFile("\xFF\xFE" + data.substr(0, data.size() - 2));
}

TEST(RegistryDirectories, OfTextsThatWindowsExpands)
{
    EXPECT_EQ(
        Text("0x20000", "\"%%SystemRoot%%\\a.dll;%13%\\kssample.sys\""),
        "%SystemRoot%\\a.dll;"
        "%SystemRoot%\\System32\\DriverStore\\FileRepository\\sample.inf_amd64_0\\kssample.sys");
    EXPECT_EQ(Text("0x20000", "%12%\\kssample.sys"),
              "%SystemRoot%\\System32\\drivers\\kssample.sys");
}

TEST(RegistryDirectories, OfOtherTexts)
{
    EXPECT_EQ(Text("", "%11%\\a.dll"), "C:\\Windows\\System32\\a.dll");
    EXPECT_EQ(Text("0x10000", "%11%\\a.dll,%10%"), "C:\\Windows\\System32\\a.dll C:\\Windows ");
}

TEST(RegistryDirectories, WhatIsNone)
{
    for (const char* text :
         {"50%", "%none%", "%%", "%4242%\\a", "%-1%", "%PATH%11%", "100% of 5% \xC3\xA4"})
        EXPECT_EQ(Text("", text), Inf(std::string("[A]\nk=") + text).Value("A", "k")) << text;
}

} // namespace
} // namespace kestro::test
