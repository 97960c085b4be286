// other_users_test.cpp - what another user of the machine may do with a mounted image: read what the mode bits
// allow, and nothing that ends the mount.
#include "image_case.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

namespace kestro::test {
namespace {

constexpr unsigned kNobody = 65534;

class OtherUsers : public ImageCase {
  protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "only the superuser can become another user";
        ImageCase::SetUp();
        fs::permissions(folder_,
                        fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
    }
    // In a process of that user; what fails there fails here.
    static void AsNobody(const std::function<void()>& work)
    {
        const pid_t child = fork();
        if (child == 0) {
            try {
                if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)
                    ADD_FAILURE() << strerror(errno);
                else
                    work();
            } catch (const std::exception& error) {
                ADD_FAILURE() << error.what();
            }
            std::fflush(nullptr);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    static int ErrorOf(long result) { return result < 0 ? errno : 0; }
    static int ErrorOfOpening(const fs::path& path, int flags)
    {
        const int file = open(path.c_str(), flags | O_CLOEXEC);
        const int error = ErrorOf(file);
        if (file >= 0)
            close(file);
        return error;
    }
    void ReadEverything() const
    {
        std::string seen;
        for (const auto& entry : fs::recursive_directory_iterator(
                 Mounted(), fs::directory_options::skip_permission_denied))
            if (entry.is_regular_file())
                seen += entry.path().filename().string() + " ";
        EXPECT_NE(seen.find("hosts"), std::string::npos) << seen;
        EXPECT_EQ(ReadFile(folder_ / "mount/Windows/System32/kernel.bin"), Noise(1, 100'000));
        EXPECT_EQ(ReadFile(folder_ / "mount/Windows/notes.txt"), std::string(5000, 'n'));
    }
    // libwim ends a mount whose root is asked for the first of them.
    void AskForAttributes() const
    {
        char bytes[4096];
        for (const char* const path : {"mount", "mount/Windows", "mount/Windows/notes.txt"}) {
            const std::string asked = folder_ / path;
            for (const char* const name : {"wimfs.unmount", "user.wimfs.unmount",
                                           "trusted.kestro.place", "trusted.overlay.opaque"})
                EXPECT_LT(lgetxattr(asked.c_str(), name, bytes, sizeof bytes), 0) << asked << name;
            EXPECT_LT(lsetxattr(asked.c_str(), "wimfs.unmount_info", "", 0, 0), 0) << asked;
            llistxattr(asked.c_str(), bytes, sizeof bytes);
        }
    }
    void ExpectWholeMount() const
    {
        ASSERT_EQ(Store().Mounts().size(), 1U);
        EXPECT_EQ(Store().Mounts()[0].state, servicing::MountState::Ok);
        ReadEverything();
    }
};

TEST_F(OtherUsers, MayReadWhatTheModesAllow)
{
    Mount();
    const fs::path windows = folder_ / "mount/Windows";
    WriteFile(windows / "secret.txt", "secret");
    fs::permissions(windows / "secret.txt", fs::perms::owner_read);
    fs::permissions(windows / "empty.txt", fs::perms::owner_all);
    fs::create_directory(windows / "private");
    fs::permissions(windows / "private", fs::perms::owner_all);
    AsNobody([&] {
        ReadEverything();
        AskForAttributes();
        EXPECT_EQ(ErrorOfOpening(windows / "secret.txt", O_RDONLY), EACCES);
        EXPECT_EQ(ErrorOfOpening(windows / "empty.txt", O_RDONLY), EACCES);
        EXPECT_EQ(ErrorOfOpening(windows / "private", O_RDONLY | O_DIRECTORY), EACCES);
        EXPECT_EQ(ErrorOfOpening(windows / "notes.txt", O_WRONLY), EACCES);
        EXPECT_EQ(ErrorOf(unlink((windows / "notes.txt").c_str())), EACCES);
        EXPECT_EQ(ErrorOf(mkdir((windows / "theirs").c_str(), 0777)), EACCES);
    });
    ExpectWholeMount();
    Commit();
    EXPECT_EQ(FileInImage("/Windows/secret.txt"), "secret");
    ExpectNothingLeft();
}

TEST_F(OtherUsers, MayReadWhatIsMountedReadOnly)
{
    auto request = Request();
    request.readOnly = true;
    Store().Mount(request);
    AsNobody([&] {
        ReadEverything();
        AskForAttributes();
        EXPECT_NE(ErrorOfOpening(folder_ / "mount/Windows/notes.txt", O_WRONLY), 0);
    });
    ExpectWholeMount();
    Discard();
    ExpectNothingLeft();
}

// A mounter whose mask keeps others out keeps them out of a mounted image, too.
TEST_F(OtherUsers, AreKeptOutByTheMountersMask)
{
    for (const bool readOnly : {true, false}) {
        SCOPED_TRACE(readOnly ? "read-only" : "read-write");
        auto request = Request();
        request.readOnly = readOnly;
        const mode_t mask = umask(077);
        Store().Mount(request);
        umask(mask);
        AsNobody([&] {
            EXPECT_EQ(ErrorOfOpening(folder_ / "mount/Windows", O_RDONLY | O_DIRECTORY), EACCES);
            EXPECT_EQ(ErrorOfOpening(folder_ / "mount/Windows/notes.txt", O_RDONLY), EACCES);
        });
        ExpectWholeMount();
        Discard();
    }
}

// The superuser's rights pass through the overlay; what ends libwim's own mounts does not.
TEST_F(OtherUsers, AndWimlibDoNotEndIt)
{
    Mount();
    WriteFile(folder_ / "mount/Windows/new.txt", "new");
    char bytes[4096];
    for (const char* const path : {"mount", "mount/Windows"})
        EXPECT_LT(lgetxattr((folder_ / path).c_str(), "wimfs.unmount", bytes, sizeof bytes), 0);
    EXPECT_FALSE(Succeeds("wimlib-imagex unmount " + Mounted() + " >/dev/null 2>&1"));
    ExpectWholeMount();
    Commit();
    EXPECT_EQ(FileInImage("/Windows/new.txt"), "new");
}

} // namespace
} // namespace kestro::test
