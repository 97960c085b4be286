// metadata_test.cpp - what Windows knows of a file and Linux cannot show: an image captured from an NTFS
// volume keeps it where the file's content, name or folder changed, and everywhere else.
#include "replay_case.h"

#include <fcntl.h>
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
    // Another name takes the short one away, as it does on Windows.
    void ExpectKeptByRename(const std::string& path, const std::string& now)
    {
        const auto withoutShortName = [](const std::string& facts) {
            const std::size_t at = facts.find("Short Name");
            return at == std::string::npos
                       ? facts
                       : facts.substr(0, at) + facts.substr(facts.find('\n', at) + 1);
        };
        EXPECT_EQ(withoutShortName(Lasting(before_.at(path))),
                  withoutShortName(Lasting(Facts()[now])))
            << now;
    }
    void ExpectLinks(const std::string& path, int count)
    {
        const std::string fact = "Link Count          = " + std::to_string(count) + "\n";
        EXPECT_NE(Facts()[path].find(fact), std::string::npos) << Facts()[path];
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
    // A junction that leads out of the volume, and what only a driver of Windows' can read.
    const std::string target = std::string("\\\0?\0?\0\\\0D\0:\0\\\0x\0", 16);
    const auto reparse = [&](const std::string& path, const std::string& tag, std::string data) {
        data = tag + static_cast<char>(data.size()) + std::string(3, '\0') + data;
        set(path, "system.ntfs_reparse_data", data);
    };
    fs::create_directory(tree / "junction");
    reparse("/junction", std::string("\x03\0\0\xA0", 4),
            std::string("\0\0\x10\0\x12\0\0\0", 8) + target + std::string(4, '\0'));
    WriteFile(tree / "only for Windows", "");
    reparse("/only for Windows", std::string("\x1B\0\0\x80", 4), "what it says");
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

TEST_F(Metadata, IsNotInTheWayOfWhatIsShown)
{
    const std::string applied = NewDirectory();
    Shell("wimlib-imagex apply " + Image().string() + " 1 " + applied);
    auto request = Request();
    request.way = servicing::MountWay::Lazy;
    Store().Mount(request);
    EXPECT_EQ(ViewOf(applied), ViewOf(Mounted()));
    Discard();
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

// Whatever way a name gets content of its own: in its place, by a rename over it, under a new name, with another
// new name; and after it was only touched.
TEST_F(Metadata, OfAChangedNameOfALinkGroupStaysWithIt)
{
    const std::string font = "/Windows/Fonts/untouched font.ttf";
    fs::copy_file(Image(), folder_ / "original.wim");
    const auto mountOriginal = [&](const std::string& change) {
        fs::copy_file(folder_ / "original.wim", Image(), fs::copy_options::overwrite_existing);
        Shell("wimlib-imagex " + change);
        auto request = Request();
        request.way = servicing::MountWay::Lazy;
        Store().Mount(request);
    };
    WriteFile(folder_ / "tree/large.bin", Noise(5, 200'000));
    const std::string info = "info " + Image().string() + " 1 ";
    for (const std::string& change :
         {info + "--boot", "optimize --check " + Image().string(),
          "append " + (folder_ / "tree").string() + " " + Image().string() + " Large"}) {
        SCOPED_TRACE(change);
        mountOriginal(change);
        const auto save = [&] {
            EXPECT_TRUE(Store().Commit(Mounted(), {}));
            ExpectValidImage();
            Shell("wimlib-imagex info --check " + Image().string() + " >/dev/null");
        };
        fs::permissions(In("/Windows/link3"), fs::perms::owner_all);
        save();
        ExpectUntouchedBut({});
        std::ofstream(In("/Windows/link1")) << "in its place";
        WriteFile(In("/Windows/new"), "by a rename over it");
        fs::rename(In("/Windows/new"), In("/Windows/link2"));
        save();
        ExpectKept("/Windows/link1", "/Windows/link1");
        ExpectKept("/Windows/link2", "/Windows/link2");
        EXPECT_EQ(FileInImage("/Windows/link1"), "in its place");
        EXPECT_EQ(FileInImage("/Windows/link2"), "by a rename over it");
        EXPECT_EQ(FileInImage(font), "font");
        ExpectLinks("/Windows/link1", 1);
        ExpectLinks("/Windows/link2", 1);
        ExpectLinks(font, 2);
        ExpectUntouchedBut(
            {font, "/Windows", "/Windows/link1", "/Windows/link2", "/Windows/link3"});

        // Named once more, it still has the content of the first name; then both get another.
        fs::create_hard_link(In("/Windows/link3"), In("/again"));
        save();
        ExpectLinks("/again", 3);
        std::ofstream(In("/again")) << "with another name";
        fs::rename(In("/Windows/link3"), In("/renamed"));
        Commit();
        ExpectValidImage();
        for (const char* const name : {"/again", "/renamed"}) {
            EXPECT_EQ(FileInImage(name), "with another name");
            ExpectKeptByRename("/Windows/link3", name);
            ExpectLinks(name, 2);
        }
        EXPECT_EQ(FileInImage(font), "font");
        ExpectKept(font, font);
        ExpectLinks(font, 1);
        ExpectNothingLeft();
    }
    EXPECT_EQ(ReadFile(folder_ / "log").find("is written anew"), std::string::npos);
}

// There the names of a file change together.
TEST_F(Metadata, OfALinkGroupStaysWhenItWasExtracted)
{
    auto request = Request();
    request.way = servicing::MountWay::Extracted;
    Store().Mount(request);
    std::ofstream(In("/Windows/link1")) << "all but one";
    WriteFile(In("/Windows/new"), "one");
    fs::rename(In("/Windows/new"), In("/Windows/link2"));
    Commit();
    ExpectValidImage();
    for (const char* const name : {"/Windows/Fonts/untouched font.ttf", "/Windows/link1",
                                   "/Windows/link3", "/Windows/link2"}) {
        const bool isOne = std::string(name) == "/Windows/link2";
        EXPECT_EQ(FileInImage(name), isOne ? "one" : "all but one");
        ExpectKept(name, name);
        ExpectLinks(name, isOne ? 1 : 3);
    }
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

TEST_F(Metadata, OfARenamedFileStays)
{
    const std::string software = kConfig + "/SOFTWARE", text = "/Windows/long name.txt";
    fs::copy_file(Image(), folder_ / "original.wim");
    for (const auto way : {servicing::MountWay::Lazy, servicing::MountWay::Extracted}) {
        SCOPED_TRACE(way == servicing::MountWay::Lazy ? "lazy" : "extracted");
        fs::copy_file(folder_ / "original.wim", Image(), fs::copy_options::overwrite_existing);
        auto request = Request();
        request.way = way;
        Store().Mount(request);
        const auto save = [&] {
            EXPECT_TRUE(Store().Commit(Mounted(), {}));
            ExpectValidImage();
        };
        fs::rename(In(kHive), In("/Windows/hive"));
        std::ofstream(In(software), std::ios::app) << " changed";
        fs::rename(In(software), In("/soft"));
        fs::rename(In("/Windows/link1"), In("/Windows/renamed link"));
        save();
        ExpectKeptByRename(kHive, "/Windows/hive");
        ExpectKeptByRename(software, "/soft");
        EXPECT_EQ(FileInImage("/soft"), "software changed");
        ExpectKeptByRename("/Windows/link2", "/Windows/renamed link");
        ExpectLinks("/Windows/renamed link", 4);

        // Two that were renamed, and one of them with one that was not.
        ASSERT_EQ(renameat2(AT_FDCWD, In("/soft").c_str(), AT_FDCWD, In("/Windows/hive").c_str(),
                            RENAME_EXCHANGE),
                  0);
        ASSERT_EQ(
            renameat2(AT_FDCWD, In("/soft").c_str(), AT_FDCWD, In(text).c_str(), RENAME_EXCHANGE),
            0);
        fs::rename(In(kConfig), In("/moved"));
        save();
        ExpectKeptByRename(kHive, text);
        ExpectKeptByRename(software, "/Windows/hive");
        ExpectKeptByRename(text, "/soft");
        ExpectKeptByRename(kConfig, "/moved");
        EXPECT_EQ(FileInImage(text), "hive");

        // The way of many editors: what is new is new.
        fs::rename(In("/soft"), In("/soft~"));
        WriteFile(In("/soft"), "new");
        fs::rename(In("/Windows/renamed link"), In("/Windows/link1"));
        std::ofstream(In(text)) << "changed";
        fs::rename(In(text), In("/moved/SYSTEM"));
        Commit();
        ExpectValidImage();
        ExpectKeptByRename(text, "/soft~");
        ExpectKeptByRename(kHive, "/moved/SYSTEM");
        EXPECT_EQ(FileInImage("/moved/SYSTEM"), "changed");
        EXPECT_EQ(Facts()["/soft"].find("stream \"stream\""), std::string::npos);
        ExpectLinks("/Windows/link1", 4);
        ExpectNothingLeft();
    }
}

// A copy that looks like the file in everything, the superuser's attributes among it.
TEST_F(Metadata, OfACopiedFileStaysWithTheFile)
{
    const std::string text = "/Windows/long name.txt";
    auto request = Request();
    request.way = servicing::MountWay::Lazy;
    Store().Mount(request);
    const auto copy = [&](const char* to) {
        Shell("cp -a '" + In(text).string() + "' '" + In(to).string() + "'");
    };
    copy("/before"); // while nothing of the file was changed
    EXPECT_TRUE(Store().Commit(Mounted(), {}));
    std::ofstream(In(text)) << "changed";
    copy("/after");
    Commit();
    ExpectValidImage();
    ExpectKept(text, text);
    EXPECT_EQ(FileInImage(text), "changed");
    EXPECT_EQ(FileInImage("/before"), "text");
    EXPECT_EQ(FileInImage("/after"), "changed");
    ExpectUntouchedBut({text, "/", "/before", "/after"});
}

} // namespace
} // namespace kestro::test
