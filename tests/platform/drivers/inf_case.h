// inf_case.h - what the tests of reading INFs share: texts of INFs, and the Windows they are read for.
#pragma once

#include "inf_package.h"

#include <gtest/gtest.h>

#include <string>

namespace kestro::test {

using servicing::Architecture;
using servicing::Fit;
using servicing::ImageWindows;
using servicing::InfFile;

inline ImageWindows Windows(unsigned major, unsigned minor, unsigned build,
                            Architecture architecture = Architecture::Amd64)
{
    ImageWindows windows;
    windows.architecture = architecture;
    windows.major = major;
    windows.minor = minor;
    windows.build = build;
    windows.productType = 1;
    return windows;
}
inline const ImageWindows kWindows7 = Windows(6, 1, 7601);
inline const ImageWindows kWindows8 = Windows(6, 2, 9200);
inline const ImageWindows kWindows10 = Windows(10, 0, 19041);
inline const ImageWindows kWindows11 = Windows(10, 0, 22621);

inline InfFile Inf(const std::string& text, unsigned language = 0)
{
    return InfFile::Parse("[Version]\nSignature=$Windows NT$\n" + text, "sample.inf", language);
}

inline servicing::DriverPackage Read(const std::string& text,
                                     const ImageWindows& windows = kWindows10)
{
    servicing::InfLibrary library;
    return ReadPackage(Inf(text), windows, library);
}

// What one install section, here for one device, does. `text` begins with the section's own lines.
inline servicing::Configuration Installed(const std::string& text,
                                          const ImageWindows& windows = kWindows10)
{
    auto package = Read("[Manufacturer]\nKestro Samples=Models,NTamd64\n"
                        "[Models.NTamd64]\nSample=Install,ROOT\\SAMPLE\n[Install]\n" +
                            text,
                        windows);
    EXPECT_EQ(package.configurations.size(), 1u);
    return package.configurations.at(0);
}

} // namespace kestro::test
