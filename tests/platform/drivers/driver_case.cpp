// driver_case.cpp - what the tests of the driver store share.
#include "driver_case.h"

#include "minimal_hive.h"

#include <cstdlib>

namespace kestro::test {

void DriverCase::SetUp()
{
    std::string pattern = fs::temp_directory_path() / "kestro-drivers-XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    WriteFile(Hive(), MinimalHive());
    fs::create_directories(In("Windows/INF"));
    WriteFile(In("Windows/INF/usb.inf"), "an in-box INF");
}

void DriverCase::TearDown()
{
    fs::remove_all(folder_);
}

servicing::DriverPackage DriverCase::MakePackage(const std::string& name) const
{
    const fs::path source = folder_ / "source" / name;
    WriteFile(source / (name + ".inf"), "the INF of " + name);
    WriteFile(source / (name + ".sys"), "the driver of " + name);
    WriteFile(source / "x64/Helper.dll", "the helper of " + name);
    servicing::DriverPackage package;
    package.inf = source / (name + ".inf");
    package.className = "Net";
    package.classGuid = "{4d36e972-e325-11ce-bfc1-08002be10318}";
    package.provider = "Maker of " + name;
    package.date = {2024, 2, 29};
    package.version = {1, 2, 3, 4};
    package.applies = true;
    package.files = {{"", name + ".sys"}, {"x64", "Helper.dll"}};
    package.models = {{"amd64",
                       "Maker",
                       "Card",
                       "PCI\\VEN_1234&DEV_" + name,
                       {"PCI\\CC_0200"},
                       "Install.NT",
                       "svc" + name}};
    package.origin = "Z:\\source\\" + name;
    return package;
}

void DriverCase::ExpectWhole(const servicing::AddResult& added, const std::string& name) const
{
    const std::string folder = added.folder.filename();
    EXPECT_EQ(ReadFile(In("Windows/INF/" + added.published)), "the INF of " + name);
    EXPECT_EQ(ReadFile(added.folder / (name + ".inf")), "the INF of " + name);
    EXPECT_EQ(ReadFile(added.folder / (name + ".sys")), "the driver of " + name);
    EXPECT_EQ(ReadFile(added.folder / "x64/Helper.dll"), "the helper of " + name);
    EXPECT_EQ(Value("DriverInfFiles\\" + added.published, "Active"), folder);
    EXPECT_EQ(Value("DriverPackages\\" + folder, "@"), added.published);
    EXPECT_NE(Keys("DeviceIds\\PCI").find("VEN_1234&DEV_" + name), std::string::npos);
}

std::string DriverCase::Keys(const std::string& key) const
{
    return Shell("printf 'cd \\\\DriverDatabase\\%s\\nls\\n' '" + key + "' | hivexsh " +
                 Hive().string());
}

std::string DriverCase::Value(const std::string& key, const std::string& name) const
{
    std::string text =
        Shell("hivexget " + Hive().string() + " '\\DriverDatabase\\" + key + "' '" + name + "'");
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// A hive without its times and without where in the file it has what.
static std::string DescribeHive(const fs::path& hive)
{
    return Shell("hivexml " + hive.string() +
                 " | sed 's/<mtime>[^<]*//g; s/<byte_run [^>]*>//g;"
                 " s/\\(key=\"ImportDate\"\\) value=\"[^\"]*\"/\\1/'");
}

DriverCase::Files DriverCase::SnapshotOf(const fs::path& root)
{
    Files files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string path = fs::relative(entry.path(), root);
        files[path] = entry.is_directory() ? "a directory"
                      : path == kHive      ? DescribeHive(entry.path())
                                           : ReadFile(entry.path());
    }
    return files;
}

} // namespace kestro::test
