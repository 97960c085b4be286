// inf_selection_test.cpp - which sections of an INF the image's own Windows takes.
#include "inf_case.h"

namespace kestro::test {
namespace {

using Decorations = std::vector<std::string>;

// One models section for each decoration, with a device that bears its name. Those in `empty` have
// none; "" is the section without a decoration.
std::string Models(const Decorations& decorations, const Decorations& empty = {})
{
    std::string text = "[Manufacturer]\nKestro Samples=Models";
    for (const auto& decoration : decorations)
        text += decoration.empty() ? "" : "," + decoration;
    for (const auto& decoration : empty)
        text += "," + decoration + "\n[Models." + decoration + "]";
    for (const auto& decoration : decorations)
        text += "\n[Models" + (decoration.empty() ? "" : "." + decoration) + "]\nSample=Install,<" +
                decoration + ">";
    return text + "\n";
}

std::string Chosen(const Decorations& decorations, const ImageWindows& windows,
                   const Decorations& empty = {})
{
    const auto package = Read(Models(decorations, empty), windows);
    return package.applies ? package.models.at(0).hardwareId : "nothing";
}

TEST(InfSelection, TheArchitecture)
{
    const auto chosen = [](const Decorations& decorations, Architecture architecture) {
        return Chosen(decorations, Windows(10, 0, 19041, architecture));
    };
    EXPECT_EQ(chosen({"NTx86", "NTamd64"}, Architecture::Amd64), "<NTamd64>");
    EXPECT_EQ(chosen({"NTx86", "NTamd64"}, Architecture::X86), "<NTx86>");
    EXPECT_EQ(chosen({"NTx86", "NTamd64"}, Architecture::Arm64), "nothing");
    EXPECT_EQ(chosen({"NTARM", "NTARM64"}, Architecture::Arm64), "<NTARM64>");
    EXPECT_EQ(chosen({"NTARM", "NTARM64"}, Architecture::Arm), "<NTARM>");
    EXPECT_EQ(chosen({"NT", "NTamd64"}, Architecture::Amd64), "<NTamd64>");
    EXPECT_EQ(chosen({"ntAMD64"}, Architecture::Amd64), "<ntAMD64>");
}

TEST(InfSelection, TheHighestVersionThatTheImageHas)
{
    const Decorations all{"NTamd64", "NTamd64.6.2", "NTamd64.10.0...16299", "NTamd64.6.1",
                          "NTamd64.10.0"};
    EXPECT_EQ(Chosen(all, Windows(6, 0, 6002)), "<NTamd64>");
    EXPECT_EQ(Chosen(all, kWindows7), "<NTamd64.6.1>");
    EXPECT_EQ(Chosen(all, kWindows8), "<NTamd64.6.2>");
    EXPECT_EQ(Chosen(all, Windows(6, 3, 9600)), "<NTamd64.6.2>");
    EXPECT_EQ(Chosen(all, Windows(10, 0, 14393)), "<NTamd64.10.0>");
    EXPECT_EQ(Chosen(all, Windows(10, 0, 16299)), "<NTamd64.10.0...16299>");
    EXPECT_EQ(Chosen(all, kWindows11), "<NTamd64.10.0...16299>");
}

TEST(InfSelection, AnImageThatTellsNoVersionIsTheNewest)
{
    EXPECT_EQ(Chosen({"NTamd64.6.1", "NTamd64.10.0...22000"}, Windows(0, 0, 0)),
              "<NTamd64.10.0...22000>");
}

TEST(InfSelection, EmptyFields)
{
    EXPECT_EQ(Chosen({"NTamd64.6"}, kWindows7), "<NTamd64.6>");
    EXPECT_EQ(Chosen({"NTamd64.6", "NTamd64.6.1"}, kWindows7), "<NTamd64.6.1>");
    EXPECT_EQ(Chosen({"NT.7"}, kWindows7), "nothing");
    EXPECT_EQ(Chosen({"NT..3"}, kWindows7), "<NT..3>");
    EXPECT_EQ(Chosen({"NTamd64..."}, kWindows7), "<NTamd64...>");
    EXPECT_EQ(Chosen({"NTamd64.10.0....."}, kWindows10), "nothing");
}

TEST(InfSelection, WhatWindowsDoesNotUnderstand)
{
    for (const char* none : {"NT$ARCH$", "NTmips", "amd64", "NTamd64.ten", "NTamd64.10.0...1x",
                             "NTamd64.0x", "NTamd64.10.0...1.2", "NTamd64.99999999999"})
        EXPECT_EQ(Chosen({none}, kWindows10), "nothing") << none;
}

TEST(InfSelection, BuildsCountWithTheirOwnVersionAlone)
{
    EXPECT_EQ(Chosen({"NTamd64.10.0...22000"}, kWindows10), "nothing");
    EXPECT_EQ(Chosen({"NTamd64.6.1...99999"}, kWindows10), "<NTamd64.6.1...99999>");
    EXPECT_EQ(Chosen({"NTamd64.10.0...10240"}, Windows(10, 0, 10240)), "nothing");
    EXPECT_EQ(Chosen({"NTamd64.6.1...7600"}, kWindows7), "nothing");
}

TEST(InfSelection, ProductTypeAndSuite)
{
    ImageWindows client = kWindows10;
    client.suiteMask = 0x100;
    ImageWindows server = kWindows10;
    server.productType = 3;
    server.suiteMask = 0x90;
    const Decorations types{"NTamd64.10.0", "NTamd64.10.0.3", "NTamd64.10.0.0x0000001"};
    EXPECT_EQ(Chosen(types, client), "<NTamd64.10.0.0x0000001>");
    EXPECT_EQ(Chosen(types, server), "<NTamd64.10.0.3>");
    EXPECT_EQ(Chosen({"NTamd64.6.1.2"}, server), "nothing");

    EXPECT_EQ(Chosen({"NTamd64", "NTamd64....0x80"}, server), "<NTamd64....0x80>");
    EXPECT_EQ(Chosen({"NTamd64", "NTamd64....0x80"}, client), "<NTamd64>");
    EXPECT_EQ(Chosen({"NTamd64....0x90"}, server), "<NTamd64....0x90>");
    EXPECT_EQ(Chosen({"NTamd64....0x92"}, server), "nothing");
    EXPECT_EQ(Chosen({"NTamd64....0x10", "NTamd64...3"}, server), "<NTamd64...3>");
    // A version counts more than both.
    EXPECT_EQ(Chosen({"NTamd64.5", "NTamd64...3.0x80"}, server), "<NTamd64.5>");
}

TEST(InfSelection, VersionGoesBeforeArchitecture)
{
    const auto windows7 = Windows(6, 1, 7601, Architecture::X86);
    EXPECT_EQ(Chosen({"NTx86.6.0", "NT.6.1"}, windows7), "<NT.6.1>");
    EXPECT_EQ(Chosen({"NTx86.6.0", "NT.6.1"}, Windows(6, 0, 6002, Architecture::X86)),
              "<NTx86.6.0>");
    EXPECT_EQ(Chosen({"NTx86.6.1", "NT.6.1"}, windows7), "<NTx86.6.1>");
}

TEST(InfSelection, ASectionWithoutADecorationIsForX86)
{
    EXPECT_EQ(Chosen({""}, Windows(10, 0, 19041, Architecture::X86)), "<>");
    EXPECT_EQ(Chosen({"", "NT"}, Windows(10, 0, 19041, Architecture::X86)), "<NT>");
    for (const auto other : {Architecture::Amd64, Architecture::Arm64, Architecture::Arm})
        EXPECT_EQ(Chosen({""}, Windows(10, 0, 19041, other)), "nothing");
}

TEST(InfSelection, AnEmptySectionThatWins)
{
    EXPECT_EQ(Chosen({"NTamd64"}, kWindows7, {"NTamd64.10.0"}), "<NTamd64>");
    EXPECT_EQ(Chosen({"NTamd64"}, kWindows10, {"NTamd64.10.0"}), "nothing");
}

TEST(InfSelection, WhyAPackageDoesNotFit)
{
    const auto fit = [](const Decorations& decorations, const Decorations& empty = {}) {
        return Read(Models(decorations, empty)).fit;
    };
    EXPECT_EQ(fit({"NTx86", "NTamd64"}), Fit::Applies);
    EXPECT_EQ(fit({"NTx86", "NTarm64.10.0"}), Fit::OtherArchitecture);
    EXPECT_EQ(fit({""}), Fit::OtherArchitecture);
    EXPECT_EQ(fit({"NTx86", "NTamd64.10.0...22000"}), Fit::OtherWindows);
    EXPECT_EQ(fit({"NTamd64.6.1"}, {"NTamd64.10.0"}), Fit::OtherWindows);
    EXPECT_EQ(fit({"NTx86"}, {"NTamd64"}), Fit::OtherWindows);
    EXPECT_EQ(Read(Models({"NTamd64"}), Windows(10, 0, 19041, Architecture::X86)).fit,
              Fit::OtherArchitecture);
    EXPECT_EQ(Read("").fit, Fit::NothingToInstall);
    EXPECT_EQ(Read("[DefaultInstall.NTamd64]\n").fit, Fit::Applies);
    EXPECT_EQ(Read("[DefaultInstall.NTx86]\n").fit, Fit::NothingToInstall);
}

TEST(InfSelection, EachManufacturerByItself)
{
    const auto package = Read("[Manufacturer]\nOne=One,NTamd64.6.1,NTamd64.10.0...16299\n"
                              "Two=Two,NTamd64.10.0\nThree=Three,NTx86\nFour\n"
                              "[One.NTamd64.6.1]\nSample=Install,<old>\n"
                              "[One.NTamd64.10.0...16299]\nSample=Install,<one>\n"
                              "[Two.NTamd64.10.0]\nSample=Install,<two>\n"
                              "[Three.NTx86]\nSample=Install,<three>\n");
    ASSERT_EQ(package.models.size(), 2u);
    EXPECT_EQ(package.models[0].hardwareId, "<one>");
    EXPECT_EQ(package.models[1].hardwareId, "<two>");
    EXPECT_EQ(package.models[1].manufacturer, "Two");
    // The lowest of those that were taken.
    EXPECT_EQ(package.osVersionFloor, 0x0A000000u);
}

TEST(InfSelection, AManufacturerWhoseNameIsItsSections)
{
    const auto package =
        Read("[Manufacturer]\n\"Kestro Samples\"\n[Kestro Samples]\nSample=Install,<a>\n",
             Windows(6, 1, 7601, Architecture::X86));
    ASSERT_EQ(package.models.size(), 1u);
    EXPECT_EQ(package.models[0].manufacturer, "Kestro Samples");
}

TEST(InfSelection, TheLowestWindowsItIsFor)
{
    const auto floor = [](const char* decoration) {
        return Read(Models({decoration})).osVersionFloor;
    };
    EXPECT_EQ(floor("NTamd64.10.0...16299"), 0x0A003FABu);
    EXPECT_EQ(floor("NTamd64.6.1"), 0x06010000u);
    EXPECT_EQ(floor("NTamd64"), 0u);
}

std::string Section(const std::string& sections, Architecture architecture)
{
    const char* const decorations = "NTx86,NTamd64,NTarm64";
    const auto package =
        Read(std::string("[Manufacturer]\nM=Models,") + decorations +
                 "\n[Models.NTx86]\nA=Install,<a>\n[Models.NTamd64]\nA=Install,<a>\n"
                 "[Models.NTarm64]\nA=Install,<a>\n" +
                 sections,
             Windows(10, 0, 19041, architecture));
    return package.configurations.at(0).section;
}

TEST(InfSelection, InstallSectionsKnowArchitecturesOnly)
{
    const std::string all = "[Install]\n[INSTALL.nt]\n[Install.NTamd64]\n[Install.NTamd64.10.0]\n";
    EXPECT_EQ(Section(all, Architecture::Amd64), "Install.NTamd64");
    EXPECT_EQ(Section(all, Architecture::Arm64), "Install.NT");
    EXPECT_EQ(Section("[install]\n[Install.NTx86]\n", Architecture::Amd64), "Install");
}

TEST(InfSelection, WhatBelongsToTheSectionThatWasFound)
{
    const auto found = Installed("[Install.NT]\n[Install.NT.HW]\n[Install.Wdf]\n"
                                 "[Install.NT.Services]\nAddService=right,2,Service\n"
                                 "[Install.Services]\nAddService=wrong,2,Service\n");
    EXPECT_EQ(found.section, "Install.NT");
    EXPECT_EQ(found.service, "right");
    EXPECT_TRUE(found.hasHardware);
    EXPECT_FALSE(found.hasWdf);
}

} // namespace
} // namespace kestro::test
