// inf_package_test.cpp - what the driver store takes out of an INF.
#include "inf_models.h"
#include "inf_package.h"

#include <gtest/gtest.h>

namespace kestro::test {
namespace {

using servicing::Architecture;
using servicing::InfLine;

class MemoryInf : public servicing::InfSections {
  public:
    using Content = std::vector<std::pair<std::string, std::vector<InfLine>>>;
    explicit MemoryInf(Content content) : content_(std::move(content)) {}

    std::vector<std::string> Names() const override
    {
        std::vector<std::string> names;
        for (const auto& [name, lines] : content_)
            names.push_back(name);
        return names;
    }
    std::vector<InfLine> Section(const std::string& wanted) const override
    {
        for (const auto& [name, lines] : content_)
            if (servicing::EqualNames(name, wanted))
                return lines;
        return {};
    }

  private:
    Content content_;
};

std::vector<std::string> Paths(const servicing::DriverPackage& package)
{
    std::vector<std::string> paths;
    for (const auto& file : package.files)
        paths.push_back(file.Path());
    return paths;
}

TEST(InfPackage, VersionSection)
{
    const MemoryInf inf({{"version",
                          {{"CLASS", {"Net"}},
                           {"ClassGuid", {"{4d36e972-e325-11ce-bfc1-08002be10318}"}},
                           {"Provider", {"Maker"}},
                           {"DriverVer", {"2/9/2024", "10.0.19041.65535"}},
                           {"CatalogFile", {"any.cat"}},
                           {"CatalogFile.NTamd64", {"amd64.cat"}}}}});
    const auto package = ReadPackage(inf, Architecture::Amd64);
    EXPECT_EQ(package.className, "Net");
    EXPECT_EQ(package.provider, "Maker");
    EXPECT_EQ(package.date.year, 2024);
    EXPECT_EQ(package.date.month, 2);
    EXPECT_EQ(package.date.day, 9);
    EXPECT_EQ(package.version, (std::array<std::uint16_t, 4>{10, 0, 19041, 65535}));
    EXPECT_EQ(package.catalog, "amd64.cat");
    EXPECT_EQ(ReadPackage(inf, Architecture::X86).catalog, "any.cat");
    EXPECT_FALSE(package.applies);
}

TEST(InfPackage, ADateThatIsNone)
{
    for (const char* date : {"13/01/2024", "2024-01-01", "", "1/1/24x"}) {
        const MemoryInf inf({{"Version", {{"DriverVer", {date, "1.2"}}}}});
        const auto package = ReadPackage(inf, Architecture::Amd64);
        EXPECT_EQ(package.date.year, 0) << date;
        EXPECT_EQ(package.version, (std::array<std::uint16_t, 4>{1, 2, 0, 0})) << date;
    }
}

MemoryInf::Content Models(const std::vector<std::string>& decorations)
{
    std::vector<std::string> manufacturer{"Devices"};
    manufacturer.insert(manufacturer.end(), decorations.begin(), decorations.end());
    MemoryInf::Content content{{"Manufacturer", {{"Maker", manufacturer}}}};
    for (const auto& decoration : decorations)
        content.push_back(
            {"Devices." + decoration, {{"Card " + decoration, {"Install", "PCI\\" + decoration}}}});
    return content;
}

std::string Chosen(const std::vector<std::string>& decorations, Architecture architecture)
{
    const auto package = ReadPackage(MemoryInf(Models(decorations)), architecture);
    return package.applies ? package.models.at(0).hardwareId : "nothing";
}

TEST(InfPackage, TheModelsForTheArchitecture)
{
    EXPECT_EQ(Chosen({"NTx86", "NTamd64"}, Architecture::Amd64), "PCI\\NTamd64");
    EXPECT_EQ(Chosen({"NTx86", "NTamd64"}, Architecture::X86), "PCI\\NTx86");
    EXPECT_EQ(Chosen({"NTx86", "NTamd64"}, Architecture::Arm64), "nothing");
    EXPECT_EQ(Chosen({"NT", "NTamd64"}, Architecture::Amd64), "PCI\\NTamd64");
    EXPECT_EQ(Chosen({"NTamd64.6.1", "NTamd64.10.0...16299", "NTamd64.10.0"}, Architecture::Amd64),
              "PCI\\NTamd64.10.0...16299");
    EXPECT_EQ(Chosen({"NT$ARCH$"}, Architecture::Amd64), "nothing");
    EXPECT_EQ(Chosen({"NTARM"}, Architecture::Amd64), "nothing");
}

TEST(InfPackage, AnUndecoratedSectionIsForEveryArchitecture)
{
    const MemoryInf inf({{"Manufacturer", {{"Maker", {"Devices"}}}},
                         {"Devices", {{"Card", {"Install", "PCI\\A", "PCI\\B", "PCI\\C"}}}}});
    const auto package = ReadPackage(inf, Architecture::Arm64);
    ASSERT_TRUE(package.applies);
    EXPECT_EQ(package.models[0].manufacturer, "Maker");
    EXPECT_EQ(package.models[0].description, "Card");
    EXPECT_EQ(package.models[0].compatibleIds, (std::vector<std::string>{"PCI\\B", "PCI\\C"}));
}

TEST(InfPackage, TheSectionToInstall)
{
    const MemoryInf inf({{"Install", {}},
                         {"Install.NT", {}},
                         {"Install.NTamd64", {}},
                         {"Install.NTamd64.Services", {}},
                         {"Other.NTx86", {}}});
    EXPECT_EQ(SectionToInstall(inf, "Install", "amd64"), "Install.NTamd64");
    EXPECT_EQ(SectionToInstall(inf, "Install", "x86"), "Install.NT");
    EXPECT_EQ(SectionToInstall(inf, "Other", "amd64"), "Other");
}

TEST(InfPackage, FilesAndTheirFolders)
{
    const MemoryInf inf(
        {{"SourceDisksNames", {{"1", {"Disk", "", "", "\\common"}}}},
         {"SourceDisksNames.amd64", {{"2", {"Disk", "", "", ".\\x64\\"}}}},
         {"SourceDisksFiles", {{"a.sys", {"1", "sub"}}, {"b.sys", {"1"}}, {"c.sys", {"9"}}}},
         {"SourceDisksFiles.amd64", {{"A.SYS", {"2"}}, {"d.dll", {"2", "deep\\er"}}}}});
    EXPECT_EQ(
        Paths(ReadPackage(inf, Architecture::Amd64)),
        (std::vector<std::string>{"x64/A.SYS", "x64/deep/er/d.dll", "common/b.sys", "c.sys"}));
    EXPECT_EQ(Paths(ReadPackage(inf, Architecture::X86)),
              (std::vector<std::string>{"common/sub/a.sys", "common/b.sys", "c.sys"}));
}

MemoryInf::Content Copying(const std::string& layout)
{
    auto content = Models({"NTamd64"});
    content.insert(content.end(),
                   {{"Version", {{"LayoutFile", {layout}}}},
                    {"Install", {{"CopyFiles", {"Files", "@direct.dll"}}}},
                    {"Files", {{"", {"installed.sys", "source.sys"}}, {"", {"plain.sys"}}}},
                    {"Install.CoInstallers", {{"CopyFiles", {"@helper.dll"}}}}});
    return content;
}

TEST(InfPackage, FilesThatAreCopiedWithoutBeingListed)
{
    EXPECT_EQ(Paths(ReadPackage(MemoryInf(Copying("")), Architecture::Amd64)),
              (std::vector<std::string>{"source.sys", "plain.sys", "direct.dll", "helper.dll"}));
    EXPECT_EQ(Paths(ReadPackage(MemoryInf(Copying("layout.inf")), Architecture::Amd64)),
              std::vector<std::string>());
}

MemoryInf::Content Service(const std::string& guid, const std::string& start)
{
    auto content = Models({"NTamd64"});
    content.insert(content.end(), {{"Version", {{"ClassGuid", {guid}}}},
                                   {"Install", {}},
                                   {"Install.Services",
                                    {{"AddService", {"first", "", "ServiceInstall"}},
                                     {"AddService", {"own", "0x00000002", "ServiceInstall"}}}},
                                   {"ServiceInstall", {{"StartType", {start}}}}});
    return content;
}

TEST(InfPackage, TheServiceOfADevice)
{
    const auto package = ReadPackage(MemoryInf(Service("", "3")), Architecture::Amd64);
    EXPECT_EQ(package.models.at(0).service, "own");
}

TEST(InfPackage, WhatTheBootNeeds)
{
    const auto bootCritical = [](const std::string& guid, const std::string& start) {
        return ReadPackage(MemoryInf(Service(guid, start)), Architecture::Amd64).bootCritical;
    };
    const std::string controller = "{4D36E97B-E325-11CE-BFC1-08002BE10318}";
    EXPECT_TRUE(bootCritical(controller, "0"));
    EXPECT_TRUE(bootCritical(controller, "0x0"));
    EXPECT_FALSE(bootCritical(controller, "3"));
    EXPECT_FALSE(bootCritical("{4d36e972-e325-11ce-bfc1-08002be10318}", "0"));
}

TEST(InfPackage, ANewClassDescribesItself)
{
    const MemoryInf inf(
        {{"Version", {{"Class", {"PHDC"}}}},
         {"ClassInstall32", {{"AddReg", {"Registry"}}}},
         {"Registry",
          {{"", {"HKR", "", "Icon", "", "-20"}}, {"", {"HKR", "", "", "0", "Health devices"}}}}});
    EXPECT_EQ(ReadPackage(inf, Architecture::Amd64).classDescription, "Health devices");
}

} // namespace
} // namespace kestro::test
