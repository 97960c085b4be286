// metadata_test.cpp - what Windows knows of a file and Linux cannot show: an image captured from an NTFS
// volume keeps it where the file's content, name or folder changed, and everywhere else.
#include "replay_case.h"

#include <sys/xattr.h>

#include <fstream>
#include <set>
#include <sstream>

namespace kestro::test {
namespace {

const std::string kConfig = "/Windows/System32/config";
const std::string kHive = kConfig + "/SYSTEM";

class Metadata : public ReplayCase {
  protected:
    void SetUp() override
    {
        ReplayCase::SetUp();
        if (IsSkipped())
            return;
        if (!Succeeds("command -v mkntfs ntfs-3g"))
            GTEST_SKIP() << "mkntfs and ntfs-3g are not here";
        MakeImage();
        before_ = Facts();
    }
    void MakeImage();
    // Of each path what wimlib-imagex says of it, but for how others are linked and stored.
    std::map<std::string, std::string> Facts() const;
    // The part of it that stays with a file whose content is new.
    static std::string Lasting(const std::string& facts);
    void ExpectKept(const std::string& path, const std::string& now)
    {
        EXPECT_EQ(Lasting(before_.at(path)), Lasting(Facts()[now])) << now;
    }
    // All that is there now, but for the given paths, is as it was.
    void ExpectUntouchedBut(const std::set<std::string>& paths)
    {
        for (const auto& [path, facts] : Facts())
            if (!paths.contains(path)) {
                EXPECT_EQ(before_[path], facts) << path;
            }
    }
    fs::path In(const std::string& path) const { return Mounted() + path; }

    std::map<std::string, std::string> before_;
};

void Metadata::MakeImage()
{
    const fs::path volume = folder_ / "volume", tree = folder_ / "ntfs";
    fs::create_directory(tree);
    std::ofstream(volume).close();
    fs::resize_file(volume, 8 << 20);
    Shell("mkntfs --force --quiet --sector-size 512 " + volume.string());
    Shell("ntfs-3g -o streams_interface=xattr " + volume.string() + " " + tree.string());
    const auto set = [&](const std::string& path, const char* name, const std::string& value) {
        EXPECT_EQ(setxattr((tree.string() + path).c_str(), name, value.data(), value.size(), 0), 0)
            << path << " " << name << ": " << strerror(errno);
    };
    const auto setAll = [&](const std::string& path, char mark, const char* shortName) {
        // Archive and not indexed, which directories may be too; a hundredth of a second in 2001; an
        // owner and a group of its own, everything allowed to everyone.
        set(path, "system.ntfs_attrib_be", std::string("\0\0\x20\x20", 4));
        set(path, "system.ntfs_crtime_be", std::string("\x01\xC1\0\0\0\0\0", 7) + mark);
        set(path, "system.ntfs_dos_name", shortName);
        set(path, "user.stream", std::string("a stream of ") + mark);
        std::string security(20, '\0');
        security[0] = 1;
        security[2] = 4;
        security[3] = char(0x80);
        const std::string sid = std::string("\1\1\0\0\0\0\0\5", 8) + mark + std::string(3, '\0');
        const std::string list("\2\0\x1C\0\1\0\0\0\0\0\x14\0\xFF\1\x1F\0\1\1\0\0\0\0\0\1\0\0\0\0",
                               28);
        security[16] = 20;
        security += list;
        security[4] = static_cast<char>(security.size());
        security += sid;
        security[8] = static_cast<char>(security.size());
        security += sid;
        set(path, "system.ntfs_acl", security);
    };
    WriteFile(tree.string() + kHive, "hive");
    WriteFile(tree.string() + kConfig + "/SOFTWARE", "software");
    WriteFile(tree.string() + "/Windows/long name.txt", "text");
    WriteFile(tree.string() + "/Windows/Fonts/untouched font.ttf", "font");
    setAll(kHive, 'h', "SYS~1");
    setAll(kConfig, 'c', "CONF~1");
    setAll(kConfig + "/SOFTWARE", 's', "SOFT~1");
    setAll("/Windows/long name.txt", 'l', "LONGNA~1.TXT");
    setAll("/Windows/Fonts/untouched font.ttf", 'f', "UNTOUC~1.TTF");
    for (const char* const name : {"/Windows/link1", "/Windows/link2", "/Windows/link3"})
        fs::create_hard_link(tree.string() + "/Windows/Fonts/untouched font.ttf",
                             tree.string() + name);
    Shell("umount " + tree.string());
    Shell("wimlib-imagex capture " + volume.string() + " " + Image().string() + " Test");
}

std::map<std::string, std::string> Metadata::Facts() const
{
    std::map<std::string, std::string> facts;
    std::istringstream details(Details());
    std::string path;
    for (std::string line; std::getline(details, line);)
        if (line.starts_with("Full Path"))
            path = line.substr(line.find('"') + 1, line.rfind('"') - line.find('"') - 1);
        else if (!path.empty() && !line.starts_with("---") && !line.starts_with("Link Group") &&
                 !line.starts_with("Reference Count"))
            facts[path] += line + "\n";
    return facts;
}

std::string Metadata::Lasting(const std::string& facts)
{
    std::string lasting;
    std::istringstream lines(facts);
    bool stream = false;
    for (std::string line; std::getline(lines, line);) {
        stream = stream || line.find("Named data stream") != std::string::npos;
        for (const char* const kept :
             {"Short Name", "Attributes", "    FILE_", "Security", "Creat"})
            if (stream || line.starts_with(kept)) {
                lasting += line + "\n";
                break;
            }
    }
    return lasting;
}

TEST_F(Metadata, OfAChangedFileStays)
{
    Lay();
    for (const char* const fact : {"\"SYS~1\"", "0x00002020", "stream \"stream\"", "0100048030"})
        ASSERT_NE(before_.at(kHive).find(fact), std::string::npos) << fact << before_.at(kHive);
    std::ofstream(In(kHive)) << "changed in its place";
    // As libraries and editors save.
    WriteFile(In(kConfig + "/new"), "changed by a rename");
    fs::rename(In(kConfig + "/new"), In(kConfig + "/SOFTWARE"));
    fs::resize_file(In("/Windows/long name.txt"), 1);
    for (int save = 0; save < 2; ++save) {
        Save();
        ExpectSaved();
        ExpectKept(kHive, kHive);
        ExpectKept(kConfig + "/SOFTWARE", kConfig + "/SOFTWARE");
        ExpectKept("/Windows/long name.txt", "/Windows/long name.txt");
        ExpectKept(kConfig, kConfig);
        ExpectUntouchedBut({kHive, kConfig, kConfig + "/SOFTWARE", "/Windows/long name.txt"});
        std::ofstream(In(kHive)) << "changed again";
        WriteFile(In(kConfig + "/new"), "renamed again");
        fs::rename(In(kConfig + "/new"), In(kConfig + "/SOFTWARE"));
    }
}

TEST_F(Metadata, OfEverythingInAMovedDirectoryStays)
{
    Lay();
    fs::rename(In(kConfig), In("/moved"));
    std::ofstream(In("/moved/SYSTEM")) << "changed in a moved directory";
    Save();
    ExpectSaved();
    ExpectKept(kHive, "/moved/SYSTEM");
    fs::rename(In("/Windows"), In("/W"));
    fs::rename(In("/moved"), In("/W/System32/again"));
    Save();
    ExpectSaved();
    ExpectKept(kHive, "/W/System32/again/SYSTEM");
    // To the bit, for nobody changed it.
    EXPECT_EQ(before_.at(kConfig + "/SOFTWARE"), Facts()["/W/System32/again/SOFTWARE"]);
    EXPECT_EQ(before_.at("/Windows/Fonts"), Facts()["/W/Fonts"]);
}

TEST_F(Metadata, OfALinkGroupStaysWithTheOtherNames)
{
    Lay();
    const std::string font = "/Windows/Fonts/untouched font.ttf";
    std::ofstream(In("/Windows/link1")) << "a file of its own";
    fs::remove(In("/Windows/link3"));
    Save();
    ExpectSaved();
    for (const std::string& name : {font, std::string("/Windows/link2")}) {
        ExpectKept(name, name);
        EXPECT_NE(Facts()[name].find("Link Count          = 2"), std::string::npos);
    }
    ExpectUntouchedBut({font, "/Windows", "/Windows/link1", "/Windows/link2"});
}

// However the image is mounted: several saves in one mount, and the last one with the unmount.
TEST_F(Metadata, StaysWhenTheStoreSaves)
{
    for (const auto way : {servicing::MountWay::Lazy, servicing::MountWay::Extracted}) {
        SCOPED_TRACE(way == servicing::MountWay::Lazy ? "lazy" : "extracted");
        auto request = Request();
        request.way = way;
        Store().Mount(request);
        for (int save = 0; save < 3; ++save) {
            std::ofstream(In(kHive)) << "changed in its place " << save;
            WriteFile(In(kConfig + "/new"), "changed by a rename " + std::to_string(save));
            fs::rename(In(kConfig + "/new"), In(kConfig + "/SOFTWARE"));
            if (save < 2)
                EXPECT_TRUE(Store().Commit(Mounted(), {}));
            else
                Commit();
            ExpectValidImage();
            EXPECT_EQ(FileInImage(kHive), "changed in its place " + std::to_string(save));
            ExpectKept(kHive, kHive);
            ExpectKept(kConfig + "/SOFTWARE", kConfig + "/SOFTWARE");
            ExpectUntouchedBut({kHive, kConfig, kConfig + "/SOFTWARE"});
        }
        ExpectNothingLeft();
    }
}

} // namespace
} // namespace kestro::test
