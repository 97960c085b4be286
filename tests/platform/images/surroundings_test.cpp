// surroundings_test.cpp - what a system may lack or hold for a mount: no FUSE, no right to mount, file systems
// that no overlay can use, another mount namespace, an image file that is damaged while it is shown.
#include "file_system.h"
#include "image_case.h"
#include "image_server.h"
#include "wim_blobs.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>

namespace kestro::test {
namespace {

namespace code = servicing::code;
using servicing::MountWay;

class Surroundings : public ImageCase {
  protected:
    void SetUp() override
    {
        SKIP_WITHOUT_LAZY_MOUNTS();
        ImageCase::SetUp();
    }
    servicing::MountRequest Request(MountWay way) const
    {
        auto request = ImageCase::Request();
        request.way = way;
        return request;
    }
    // In a process of its own with mounts of its own; what fails there fails here.
    static void InANamespace(const std::function<void()>& work)
    {
        const pid_t child = fork();
        if (child == 0) {
            if (unshare(CLONE_NEWNS) != 0 ||
                mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
                ADD_FAILURE() << strerror(errno);
            else
                work();
            std::fflush(nullptr);
            _exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    void HideFuse() const
    {
        const std::string devices = folder_ / "devices";
        fs::create_directory(devices);
        ASSERT_EQ(mount("devices", devices.c_str(), "tmpfs", 0, nullptr), 0);
        ASSERT_EQ(mknod((devices + "/null").c_str(), S_IFCHR | 0666, makedev(1, 3)), 0);
        ASSERT_EQ(mknod((devices + "/urandom").c_str(), S_IFCHR | 0666, makedev(1, 9)), 0);
        ASSERT_EQ(mount(devices.c_str(), "/dev", nullptr, MS_BIND, nullptr), 0);
    }
    // The folder becomes an overlay, which cannot hold another one's changes.
    void LayOver(const std::string& directory) const
    {
        fs::create_directories(directory);
        for (const char* const name : {".below", ".above", ".aside"})
            fs::create_directory(directory + name);
        const std::string options = "lowerdir=" + directory + ".below,upperdir=" + directory +
                                    ".above,workdir=" + directory + ".aside";
        ASSERT_EQ(mount("overlay", directory.c_str(), "overlay", 0, options.c_str()), 0)
            << strerror(errno);
    }
    std::string Log() const { return ReadFile(folder_ / "log"); }
    bool LogSays(const std::string& text) const { return Log().find(text) != std::string::npos; }
    void ExpectExtracted(const std::string& reason) const
    {
        Store().Mount(Request(MountWay::Any));
        EXPECT_FALSE(Store().Mounts().at(0).lazy);
        EXPECT_TRUE(LogSays("the image is extracted, because it cannot be shown: " + reason))
            << Log();
        EXPECT_EQ(ReadFile(folder_ / "mount/Windows/System32/hosts"), "127.0.0.1 localhost\r\n");
        WriteFile(folder_ / "mount/Windows/new.txt", "new");
        Commit();
    }
    void ExpectSaved() const
    {
        ExpectValidImage();
        EXPECT_EQ(FileInImage("/Windows/new.txt"), "new");
        ExpectNothingLeft();
    }
    // Of the only mount.
    fs::path RecordFile() const
    {
        for (const auto& entry : fs::directory_iterator(folder_ / "records"))
            if (fs::exists(entry.path() / "record.json"))
                return entry.path() / "record.json";
        return {};
    }
    void MakeRecordUnreadable() const
    {
        const fs::path record = RecordFile();
        fs::remove(record);
        fs::create_directories(record / "below");
    }
    void ExpectShownAsInvalid(const std::string& directory) const
    {
        const auto mounts = Store().Mounts();
        ASSERT_EQ(mounts.size(), 1U);
        EXPECT_EQ(mounts[0].state, servicing::MountState::Invalid);
        EXPECT_EQ(mounts[0].directory, directory);
    }
    std::string ServedFile() const
    {
        for (const auto& entry : fs::recursive_directory_iterator(folder_ / "records"))
            if (entry.path().filename() == "served")
                return entry.path();
        return {};
    }
};

TEST_F(Surroundings, WithoutFuseTheImageIsExtracted)
{
    InANamespace([&] {
        HideFuse();
        EXPECT_CODE(Store().Mount(Request(MountWay::Lazy)), code::file_not_found);
        ExpectExtracted("cannot open /dev/fuse");
        EXPECT_TRUE(LogSays("changed files lose what only Windows knows of them")) << Log();
    });
    ExpectSaved();
}

TEST_F(Surroundings, ForAnOrdinaryUserTheImageIsExtracted)
{
    Shell("chown -R nobody " + folder_.string());
    InANamespace([&] {
        ASSERT_EQ(setgid(65534), 0);
        ASSERT_EQ(setuid(65534), 0);
        EXPECT_CODE(Store().Mount(Request(MountWay::Lazy)), code::access_denied);
        ExpectExtracted("this user may not mount");
    });
    ExpectSaved();
}

TEST_F(Surroundings, WhereTheRecordsCannotHoldChangesTheyLieBesideTheImage)
{
    LayOver(folder_ / "records");
    Store().Mount(Request(MountWay::Lazy));
    EXPECT_TRUE(LogSays("cannot lay ")) << Log();
    WriteFile(folder_ / "mount/Windows/new.txt", "new");
    EXPECT_TRUE(Store().Commit(Mounted(), {}));
    // Put back over the saved image, in a fresh folder there.
    WriteFile(folder_ / "mount/Windows/other.txt", "other");
    servicing::EndServing(Shell("ls -d " + Image().string() + ".kestro-*/served | tr -d '\\n'"));
    Store().PutBack(Mounted());
    EXPECT_EQ(ReadFile(folder_ / "mount/Windows/other.txt"), "other");
    Commit();
    ExpectSaved();
}

TEST_F(Surroundings, WhereNothingCanHoldChangesTheImageIsExtracted)
{
    LayOver(folder_ / "records");
    LayOver(folder_ / "images");
    MoveImageTo(folder_ / "images");
    EXPECT_CODE(Store().Mount(Request(MountWay::Lazy)), code::unexpected);
    ExpectExtracted("cannot lay ");
    ExpectSaved();
}

TEST_F(Surroundings, AMountOfAnotherNamespaceIsLeftAlone)
{
    InANamespace([&] {
        Store().Mount(Request(MountWay::Lazy));
        WriteFile(folder_ / "mount/Windows/new.txt", "new");
    });
    EXPECT_TRUE(fs::is_empty(Mounted()));
    EXPECT_CODE(Commit(), code::not_a_valid_mount);
    EXPECT_CODE(Discard(), code::not_a_valid_mount);
    EXPECT_CODE(Store().PutBack(Mounted()), code::not_a_valid_mount);
    EXPECT_TRUE(LogSays("another mount namespace") ||
                Store().Mounts().at(0).reason.find("another mount namespace") != std::string::npos);
    servicing::EndServing(ServedFile());
    Commit();
    ExpectSaved();
}

// A process with a copy of all mounts, until the object ends.
class Copies {
  public:
    Copies()
    {
        int held[2], made[2];
        if (pipe(held) != 0 || pipe(made) != 0 || (process_ = fork()) < 0)
            ADD_FAILURE() << strerror(errno);
        if (process_ == 0) {
            close(held[1]);
            const bool done = unshare(CLONE_NEWNS) == 0 &&
                              mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
            char byte = done ? 'y' : 'n';
            _exit(write(made[1], &byte, 1) == 1 && read(held[0], &byte, 1) == 0 ? 0 : 1);
        }
        close(held[0]);
        close(made[1]);
        char byte = 'n';
        EXPECT_EQ(read(made[0], &byte, 1), 1);
        EXPECT_EQ(byte, 'y');
        close(made[0]);
        held_ = held[1];
    }
    Copies(const Copies&) = delete;
    Copies& operator=(const Copies&) = delete;
    ~Copies()
    {
        close(held_);
        waitpid(process_, nullptr, 0);
    }
    std::string Read(const fs::path& path) const
    {
        return ReadFile("/proc/" + std::to_string(process_) + "/root" + path.string());
    }

  private:
    pid_t process_ = 0;
    int held_ = -1;
};

TEST_F(Surroundings, AMountIsOverThoughAnotherNamespaceStillShowsIt)
{
    const std::string windows = Mounted() + "/Windows";
    for (const bool commit : {true, false}) {
        SCOPED_TRACE(commit ? "saved" : "dropped");
        Store().Mount(Request(MountWay::Lazy));
        const std::string served = ServedFile(), mark = commit ? "new" : "dropped";
        WriteFile(windows + "/new.txt", mark);
        {
            const Copies other;
            commit ? Commit() : Discard();
            EXPECT_TRUE(LogSays("still mounted in another mount namespace")) << Log();
            EXPECT_TRUE(fs::is_empty(Mounted()));
            ExpectNothingLeft();
            // Nothing is taken away from below it, and nobody has to wait for its end.
            EXPECT_TRUE(servicing::IsServed(served));
            Store().Mount(Request(MountWay::Lazy));
            EXPECT_EQ(other.Read(windows + "/new.txt"), mark);
            EXPECT_EQ(other.Read(windows + "/notes.txt"), std::string(5000, 'n'));
            EXPECT_EQ(ReadFile(windows + "/new.txt"), "new");
            Discard();
        }
        EXPECT_TRUE(servicing::AwaitEndOfServing(served));
        Store().Mount(Request(MountWay::Lazy));
        Discard();
        EXPECT_FALSE(fs::exists(served));
    }
    ExpectSaved();
}

TEST_F(Surroundings, ADamagedRecordGoesWithItsMount)
{
    Store().Mount(Request(MountWay::Lazy));
    const fs::path record = RecordFile();
    std::ofstream(record) << "no record";
    Store().ClearAwayInvalid();
    EXPECT_FALSE(fs::exists(record.parent_path()));
    EXPECT_TRUE(fs::is_empty(Mounted()));
    EXPECT_TRUE(Store().Mounts().empty());
    Store().Mount(Request(MountWay::Lazy));
    Discard();
    ExpectNothingLeft();
}

TEST_F(Surroundings, AMountWhoseRecordCannotBeReadIsShownAndSaid)
{
    for (const bool readOnly : {false, true}) {
        auto request = Request(MountWay::Lazy);
        request.readOnly = readOnly;
        Store().Mount(request);
        MakeRecordUnreadable();
        ExpectShownAsInvalid(Mounted());
        EXPECT_CODE(Discard(), code::mount_damaged);
        EXPECT_CODE(Commit(), code::mount_damaged);
        EXPECT_CODE(Store().Mount(request), code::mount_damaged);
        // Others are not kept from anything.
        request.directory = folder_ / "other";
        fs::create_directory(request.directory);
        Store().Mount(request);
        Store().Discard(request.directory);
        {
            const servicing::FileDescriptor used(
                open((folder_ / "mount/Windows/notes.txt").c_str(), O_RDONLY | O_CLOEXEC));
            Store().ClearAwayInvalid();
            ExpectShownAsInvalid(Mounted());
        }
        Store().ClearAwayInvalid();
        EXPECT_TRUE(Store().Mounts().empty());
        EXPECT_TRUE(fs::is_empty(Mounted()));
        ExpectNothingLeft();
        fs::remove(request.directory);
    }
}

TEST_F(Surroundings, OfAnExtractedMountTheRestOfTheRecordTellsTheDirectory)
{
    Store().Mount(Request(MountWay::Extracted));
    const std::string text = ReadFile(RecordFile());
    std::ofstream(RecordFile()) << text.substr(0, text.find("\"directoryIdentity\""));
    ExpectShownAsInvalid(Mounted());
    EXPECT_CODE(Discard(), code::mount_damaged);
    MakeRecordUnreadable();
    ExpectShownAsInvalid("");
    Store().ClearAwayInvalid();
    EXPECT_TRUE(Store().Mounts().empty());
    ExpectNothingLeft();
}

TEST_F(Surroundings, APreparedRecordThatIsDamagedIsClearedAwayToo)
{
    Store().Mount(Request(MountWay::Lazy));
    std::ofstream(RecordFile().parent_path() / "next.json") << "no record";
    ExpectShownAsInvalid(Mounted());
    EXPECT_CODE(Discard(), code::mount_damaged);
    Store().ClearAwayInvalid();
    EXPECT_TRUE(Store().Mounts().empty());
    EXPECT_TRUE(fs::is_empty(Mounted()));
    ExpectNothingLeft();
}

TEST_F(Surroundings, ADamagedImageGivesErrorsAndIsServedOn)
{
    auto request = Request(MountWay::Lazy);
    Store().Mount(request);
    const servicing::FileDescriptor image(open(Image().c_str(), O_RDWR | O_CLOEXEC));
    const auto header = servicing::WimHeader::Read(image.Get());
    for (const servicing::WimBlob& blob : servicing::ReadBlobTable(image.Get(), header.BlobTable()))
        if (!blob.resource.Has(servicing::WimResource::kMetadata))
            servicing::WriteRange(image.Get(), blob.resource.offset,
                                  std::string(blob.resource.storedSize, '\xFF'));
    const int file = open((folder_ / "mount/Windows/notes.txt").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(file, 0);
    char block[5000];
    EXPECT_EQ(read(file, block, sizeof block), -1);
    EXPECT_EQ(errno, EIO);
    close(file);
    EXPECT_TRUE(servicing::IsServed(ServedFile()));
    EXPECT_EQ(Store().Mounts().at(0).state, servicing::MountState::Ok);
    EXPECT_EQ(fs::file_size(folder_ / "mount/Windows/notes.txt"), 5000U);
    Discard();
    ExpectNothingLeft();
}

TEST_F(Surroundings, TheServingProcessHasNoRights)
{
    Store().Mount(Request(MountWay::Lazy));
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    const int file = open(ServedFile().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(fcntl(file, F_GETLK, &lock), 0);
    close(file);
    const std::string status = ReadFile("/proc/" + std::to_string(lock.l_pid) + "/status");
    for (const char* const fact : {"\nCapInh:\t0000000000000000\n", "\nCapPrm:\t0000000000000000\n",
                                   "\nCapEff:\t0000000000000000\n", "\nCapBnd:\t0000000000000000\n",
                                   "\nNoNewPrivs:\t1\n", "\nSeccomp:\t2\n"})
        EXPECT_NE(status.find(fact), std::string::npos) << fact << status;
    Discard();
}

} // namespace
} // namespace kestro::test
